// A File, open, with given bytes in a directory of its own, which goes with it.

#ifndef UTL_TESTS_SUPPORT_TEXT_FILE_H
#define UTL_TESTS_SUPPORT_TEXT_FILE_H

#include <string>

#include "UtlFile.h"

#include "support/Scratch.h"

namespace test {

struct TextFile {
    TextFile(std::string const& content, int textType, int access = utl::File::READ)
        : file(scratch.file("text", content), textType) {
        EXPECT_TRUE(file.open(utl::File::AS_IT_IS, access));
    }

    Scratch const scratch;
    utl::File file;
};

}  // namespace test

#endif  // UTL_TESTS_SUPPORT_TEXT_FILE_H
