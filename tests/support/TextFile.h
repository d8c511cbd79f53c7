// A File, open, with given bytes in a directory of its own, which goes with it.

#ifndef UTL_TESTS_SUPPORT_TEXT_FILE_H
#define UTL_TESTS_SUPPORT_TEXT_FILE_H

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "UtlFile.h"

namespace test {

struct TextFile {
    TextFile(std::string const& content, int textType, int access = utl::File::READ)
        : directory(makeDirectory()), path(directory + "/text"), file(path.c_str(), textType) {
        std::ofstream(path, std::ios::binary) << content;
        EXPECT_TRUE(file.open(utl::File::AS_IT_IS, access));
    }
    ~TextFile() {
        file.close();
        std::filesystem::remove_all(directory);
    }

    std::string bytes() const {
        std::ifstream in(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }

    static std::string makeDirectory() {
        std::string name = ::testing::TempDir() + "text-XXXXXX";
        return mkdtemp(name.data()) != nullptr ? name : "";
    }

    std::string const directory;
    std::string const path;
    utl::File file;
};

}  // namespace test

#endif  // UTL_TESTS_SUPPORT_TEXT_FILE_H
