// A File that is open; and one with given bytes, in a directory of its own, which goes with it.

#ifndef UTL_TESTS_SUPPORT_TEXT_FILE_H
#define UTL_TESTS_SUPPORT_TEXT_FILE_H

#include <string>

#include "UtlFile.h"

#include "support/Scratch.h"

namespace test {

struct OpenFile : utl::File {
    OpenFile(char const* path, int access, int mode = AS_IT_IS, int textType = UTF8)
        : File(path, textType) {
        EXPECT_EQ(1, open(mode, access)) << path;
    }
};

struct TextFile {
    TextFile(std::string const& content, int textType, int access = utl::File::READ)
        : file(scratch.file("text", content), access, utl::File::AS_IT_IS, textType) {}

    Scratch const scratch;
    OpenFile file;
};

}  // namespace test

#endif  // UTL_TESTS_SUPPORT_TEXT_FILE_H
