// A directory for one test, and processes that work in it.

#ifndef UTL_TESTS_SUPPORT_SCRATCH_H
#define UTL_TESTS_SUPPORT_SCRATCH_H

#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

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
        directory(name + "/..");
        std::ofstream((*this)(name), std::ios::binary) << content;
        return (*this)(name);
    }
    char const* directory(std::string const& name) const {
        std::filesystem::path const path = std::filesystem::path((*this)(name)).lexically_normal();
        std::filesystem::create_directories(path);
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
    bool has(std::string const& name) const { return access(lstat, name) != 0; }

    unsigned mode(std::string const& name) const { return access(stat, name) & 07777; }

private:
    using Ask = int (*)(char const*, struct stat*);

    unsigned access(Ask ask, std::string const& name) const {
        struct stat status;
        return ask((*this)(name), &status) == 0 ? status.st_mode : 0;
    }

    std::string mPath;
    mutable std::set<std::string> mPaths;
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
    int status = -1;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
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
