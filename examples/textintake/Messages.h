// What travels between the threads of textintake, and how it logs.

#ifndef TEXTINTAKE_MESSAGES_H
#define TEXTINTAKE_MESSAGES_H

#include <cstdint>

#include "UtlLog.h"
#include "UtlMsg.h"

constexpr int INTAKE_LOG = 1;  // the log type that main() registers
enum Level { LEVEL_ERROR = 1, LEVEL_DETAIL = 3 };

constexpr long LINE = 0x8001;      // one line of text
constexpr long FILE_END = 0x8002;  // all lines of a file have been sent
constexpr long ALL_END = 0x8003;   // there will be no more
constexpr long TOTALS = 0x8004;    // synchronous: asks for the totals

constexpr unsigned QUEUE_LENGTH = 128;
constexpr unsigned long MAX_TEXT = 4096;  // bytes of a line, with its terminator
constexpr unsigned long MAX_MSG_SIZE = MAX_TEXT + 12;

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
    std::uint32_t outOfOrder = 0;  // lines that were not the next to be expected
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
