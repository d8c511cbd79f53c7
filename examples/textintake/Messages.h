// What travels between the threads of textintake, and how it logs.

#ifndef TEXTINTAKE_MESSAGES_H
#define TEXTINTAKE_MESSAGES_H

#include <chrono>
#include <cstdint>

#include "UtlLog.h"
#include "UtlStructMsg.h"

using namespace std::chrono_literals;

using utl::LEVEL_DETAIL;
using utl::LEVEL_ERROR;
using utl::LEVEL_INFORMATION;
constexpr int INTAKE_LOG = 1;  // the log type that main() registers

constexpr unsigned long MAX_PATH_SIZE = 260;  // the library's, with the terminator
constexpr unsigned long PAGE_SIZE = 8192;     // bytes of a page, with the terminator
constexpr unsigned QUEUE_LENGTH = 32;

// A file begins, or has ended. The path is any bytes, not always UTF-8.
struct FileNews {
    char path[MAX_PATH_SIZE] = "";
    int encoding = 0;  // a text type of utl::File

    // At the end.
    bool isWhole = false;     // all of it was sent
    int error = 0;            // otherwise: the errno for which it could not be read
    std::uint32_t lines = 0;  // that were sent
    char notes[160] = "";     // what was wrong with the text
};

// A piece of a file's text: lines, each with its end; only of a line that finds no room in a page
// a part. Lines travel in pages because a message costs the same whatever its length.
struct Page {
    std::uint32_t number = 0;  // counts all pages of a run
    std::uint32_t words = 0, characters = 0;
    char text[PAGE_SIZE] = "";
};

using FileBeginMsg = utl::StructMsg<0x8001, FileNews>;
using PageMsg = utl::StructMsg<0x8002, Page>;
using FileEndMsg = utl::StructMsg<0x8003, FileNews>;

constexpr unsigned long MAX_MSG_SIZE = PageMsg::SIZE;

#endif  // TEXTINTAKE_MESSAGES_H
