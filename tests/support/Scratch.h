// A directory for one test, and processes that work in it.

#ifndef UTL_TESTS_SUPPORT_SCRATCH_H
#define UTL_TESTS_SUPPORT_SCRATCH_H

#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

#include "support/Process.h"

namespace test {

constexpr unsigned NOBODY = 65534;

// Empty at first; goes with all that is in it. Paths are good as long as it is there.
class Scratch {
public:
    Scratch() : mPath(::testing::TempDir() + "scratch-XXXXXX") {
        EXPECT_NE(nullptr, mkdtemp(mPath.data()));
        EXPECT_TRUE(getuid() != 0 || chown(mPath.c_str(), NOBODY, NOBODY) == 0);
    }
    ~Scratch() { std::filesystem::remove_all(mPath); }

    char const* operator()(std::string const& name) const {
        return mPaths.insert(mPath + '/' + name).first->c_str();
    }
    char const* path() const { return mPath.c_str(); }

    // Makes a file, and the directories it is in.
    char const* file(std::string const& name, std::string const& content = "") const {
        std::filesystem::path const path = (*this)(name);
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << content;
        return (*this)(name);
    }
    char const* directory(std::string const& name) const {
        std::filesystem::create_directories((*this)(name));
        return (*this)(name);
    }
    char const* link(std::string const& target, std::string const& name) const {
        std::filesystem::create_symlink(target, (*this)(name));
        return (*this)(name);
    }

    std::string content(std::string const& name) const {
        std::ifstream in((*this)(name), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }

    // Not following a link.
    bool has(std::string const& name) const {
        return std::filesystem::exists(std::filesystem::symlink_status((*this)(name)));
    }

    unsigned mode(std::string const& name) const {
        return static_cast<unsigned>(std::filesystem::status((*this)(name)).permissions());
    }

private:
    std::string mPath;
    mutable std::set<std::string> mPaths;
};

// A test in such a directory.
struct ScratchTest : ::testing::Test {
    Scratch const scratch;
};

// Runs `work` in a child process. False when something that it expects is not so.
template <typename Work>
bool inChild(Work work) {
    fflush(nullptr);
    pid_t const child = fork();
    if (child == 0) {
        work();
        fflush(nullptr);
        _exit(::testing::Test::HasFailure() ? 1 : 0);
    }
    return exitCodeOf(child) == 0;
}

// The same as a user whom permissions stop.
template <typename Work>
bool asNobody(Work work) {
    return inChild([&] {
        EXPECT_TRUE(getuid() != 0 || (setgid(NOBODY) == 0 && setuid(NOBODY) == 0));
        work();
    });
}

}  // namespace test

#endif  // UTL_TESTS_SUPPORT_SCRATCH_H
