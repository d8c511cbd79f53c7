// What travels between the threads of textintake, and how it logs.

#ifndef TEXTINTAKE_MESSAGES_H
#define TEXTINTAKE_MESSAGES_H

#include <cstdint>

#include "UtlLog.h"
#include "UtlMsg.h"
#include "UtlString.h"

using utl::LEVEL_DETAIL;
using utl::LEVEL_ERROR;
using utl::LEVEL_INFORMATION;
constexpr int INTAKE_LOG = 1;  // the log type that main() registers

constexpr long FILE_BEGIN = 0x8001;
constexpr long PAGE = 0x8002;
constexpr long FILE_END = 0x8003;

constexpr unsigned long MAX_PATH_SIZE = 260;  // the library's, with the terminator
constexpr unsigned long PAGE_SIZE = 8192;     // bytes of a page, with the terminator
constexpr unsigned long MAX_MSG_SIZE = PAGE_SIZE + 16;
constexpr unsigned QUEUE_LENGTH = 32;

// A file begins, or has ended. The path is any bytes, not always UTF-8.
struct FileMsg : utl::Msg {
    explicit FileMsg(long id, char const* filePath = "", int type = 0) : Msg(id), encoding(type) {
        utl::copyStr(path, sizeof path, filePath, utl::ALL, utl::WHOLE);
    }
    void storeDataTo(utl::MsgDataBroker* broker) const override {
        broker->set(path);
        broker->set(encoding);
        broker->set(isWhole);
        broker->set(error);
        broker->set(lines);
        broker->set(notes);
    }
    void restoreDataFrom(utl::MsgDataBroker& broker) override {
        broker.get(path, sizeof path);
        broker.get(&encoding);
        broker.get(&isWhole);
        broker.get(&error);
        broker.get(&lines);
        broker.get(notes, sizeof notes);
    }

    char path[MAX_PATH_SIZE] = "";
    int encoding;  // a text type of utl::File

    // At the end.
    bool isWhole = false;     // all of it was sent
    int error = 0;            // otherwise: the errno for which it could not be read
    std::uint32_t lines = 0;  // that were sent
    char notes[160] = "";     // what was wrong with the text
};

// A piece of a file's text: lines, each with its end; only of a line that finds no room in a page
// a part. Lines travel in pages because a message costs the same whatever its length.
struct PageMsg : utl::Msg {
    PageMsg() : Msg(PAGE) {}
    void storeDataTo(utl::MsgDataBroker* broker) const override {
        broker->set(number);
        broker->set(words);
        broker->set(characters);
        broker->set(text);
    }
    void restoreDataFrom(utl::MsgDataBroker& broker) override {
        broker.get(&number);
        broker.get(&words);
        broker.get(&characters);
        broker.get(text, sizeof text);
    }

    std::uint32_t number = 0;  // counts all pages of a run
    std::uint32_t words = 0, characters = 0;
    char text[PAGE_SIZE] = "";
};

#endif  // TEXTINTAKE_MESSAGES_H
