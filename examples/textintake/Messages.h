// What travels between the threads of textintake, and how it logs.

#ifndef TEXTINTAKE_MESSAGES_H
#define TEXTINTAKE_MESSAGES_H

#include <cstdint>

#include "UtlLog.h"
#include "UtlMsg.h"
#include "UtlString.h"

constexpr int INTAKE_LOG = 1;  // the log type that main() registers
enum Level { LEVEL_ERROR = 1, LEVEL_DETAIL = 3 };

constexpr long FILE_BEGIN = 0x8001;
constexpr long LINE = 0x8002;
constexpr long FILE_END = 0x8003;
constexpr long ALL_END = 0x8004;  // there will be no more
constexpr long TOTALS = 0x8005;   // synchronous: asks for the totals

constexpr unsigned QUEUE_LENGTH = 128;
constexpr unsigned long MAX_TEXT = 4096;  // bytes of a line, with its terminator
constexpr unsigned long MAX_MSG_SIZE = MAX_TEXT + 12;

// A file begins, or has ended.
struct FileMsg : utl::Msg {
    explicit FileMsg(long id, char const* filePath = "") : Msg(id) {
        utl::copyStr(path, sizeof path, filePath, utl::ALL, utl::TRUNCATE);
    }
    void storeDataTo(utl::MsgDataBroker* broker) const override {
        broker->set(path);
        broker->set(lines);
        broker->set(isWhole);
    }
    void restoreDataFrom(utl::MsgDataBroker& broker) override {
        broker.get(path, sizeof path);
        broker.get(&lines);
        broker.get(&isWhole);
    }

    char path[260] = "";
    std::uint32_t lines = 0;    // at the end: how many were sent
    std::uint32_t isWhole = 1;  // at the end: 0 when something could not be read
};

struct LineMsg : utl::Msg {
    LineMsg() : Msg(LINE) {}
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

    std::uint32_t number = 0;  // counts all lines of a run
    std::uint32_t words = 0, characters = 0;
    char text[MAX_TEXT] = "";
};

struct Totals {
    std::uint32_t files = 0, lines = 0, words = 0, characters = 0;
    std::uint32_t faults =
        0;  // lines out of order, and files whose output is not what it should be
};

// Messages are flattened, so the answer to a synchronous one goes to an address that it carries:
// the sender, and what is there, stay put until the listener has returned.
struct TotalsMsg : utl::Msg {
    explicit TotalsMsg(Totals* out) : Msg(TOTALS), address(reinterpret_cast<std::uintptr_t>(out)) {}
    void storeDataTo(utl::MsgDataBroker* broker) const override { broker->set(address); }
    void restoreDataFrom(utl::MsgDataBroker& broker) override { broker.get(&address); }
    Totals* out() const { return reinterpret_cast<Totals*>(static_cast<std::uintptr_t>(address)); }

    unsigned long long address;
};

#endif  // TEXTINTAKE_MESSAGES_H
