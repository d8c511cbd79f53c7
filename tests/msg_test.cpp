#include "UtlMsg.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "UtlThreadRawMsg.h"

namespace utl {
namespace {

using Bytes = std::vector<unsigned char>;

TEST(MsgTest, ARestoredMessageTakesOverWhateverIdIsStored) {
    ThreadRawMsg record(8);
    ThreadRawMsg least(3);
    EXPECT_EQ(4u, least.maxSize());
    TimerMsg timer;
    timer.setTimerId(0x01020304);
    EXPECT_EQ(0, timer.storeTo(nullptr) + timer.storeTo(&least));
    EXPECT_EQ(1, timer.storeTo(&record) & SimpleMsg(0x8000).storeTo(&least));
    record.setMsgId(-7);

    TimerMsg other;
    EXPECT_EQ(-1, other.getTimerId());
    EXPECT_EQ(1, other.restoreFrom(record));
    EXPECT_EQ(-7, other.getMsgId());
    EXPECT_EQ(0x01020304, other.getTimerId());
}

// Notes which of its operations are called.
struct NotingRecord : ThreadRawMsg {
    NotingRecord() : ThreadRawMsg(8) {}
    int beginInput() override { return note("("), ThreadRawMsg::beginInput(); }
    int endInput() override { return note(")"), ThreadRawMsg::endInput(); }
    int beginOutput() override { return note("<"), ThreadRawMsg::beginOutput(); }
    int endOutput() override { return note(">"), ThreadRawMsg::endOutput(); }
    int setMsgId(long msgId) override { return note("I"), ThreadRawMsg::setMsgId(msgId); }
    int getMsgId(long* msgId) override { return note("O"), ThreadRawMsg::getMsgId(msgId); }
    int set(int value) override { return note("i"), ThreadRawMsg::set(value); }
    int get(int* value) override { return note("o"), ThreadRawMsg::get(value); }
    void note(char const* call) { calls += call; }

    std::string calls;
};

TEST(MsgTest, CallsItsBrokerInOneOrder) {
    NotingRecord record;
    TimerMsg timer;
    EXPECT_EQ(2, timer.storeTo(&record) + timer.restoreFrom(record));
    EXPECT_EQ("I(i)O<o>", record.calls);
}

template <typename T>
void expectStored(T value, Bytes const& bytes) {
    ThreadRawMsg record(4 + bytes.size());
    record.beginInput();
    EXPECT_EQ(1, record.set(value));
    EXPECT_EQ(0, record.set(true)) << "takes fewer bytes";
    EXPECT_EQ(bytes, Bytes(record.buffer() + 4, record.buffer() + record.maxSize()));
    T restored = {};
    record.beginOutput();
    EXPECT_EQ(1, record.get(&restored));
    EXPECT_EQ(value, restored);
    EXPECT_EQ(0, record.get(&restored));
}

TEST(ThreadRawMsgTest, StoresEveryTypeInItsBytes) {
    expectStored(true, {1});
    expectStored<unsigned char>(0xFE, {0xFE});
    expectStored<signed char>(-2, {0xFE});
    expectStored<unsigned short>(0xFDFC, {0xFC, 0xFD});
    expectStored<short>(-3, {0xFD, 0xFF});
    expectStored(0x80000001u, {1, 0, 0, 0x80});
    expectStored(-4, {0xFC, 0xFF, 0xFF, 0xFF});
    expectStored(0xFFFFFFFFul, {0xFF, 0xFF, 0xFF, 0xFF});
    expectStored(-0x7FFFFFFFl - 1, {0, 0, 0, 0x80});
    expectStored(0x5566778811223344ull, {0x44, 0x33, 0x22, 0x11, 0x88, 0x77, 0x66, 0x55});
    expectStored(-5ll, {0xFB, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF});
    expectStored(1.0f, {0, 0, 0x80, 0x3F});
    expectStored(-2.0, {0, 0, 0, 0, 0, 0, 0, 0xC0});
}

TEST(ThreadRawMsgTest, PacksItsFieldsBehindTheIdWithoutPadding) {
    unsigned char bytes[] = {0xAA, 0xBB};
    ThreadRawMsg record(14);
    record.beginInput();
    EXPECT_TRUE(record.set(true) && record.set(-2) && record.set("ab") && record.set(bytes, 2));
    EXPECT_EQ(1, record.setMsgId(0x83F1));
    EXPECT_EQ((Bytes{0xF1, 0x83, 0, 0, 1, 0xFE, 0xFF, 0xFF, 0xFF, 'a', 'b', 0, 0xAA, 0xBB}),
              Bytes(record.buffer(), record.buffer() + 14));
    EXPECT_EQ(1, record.set(bytes, 0)) << "needs no room";

    record.buffer()[4] = 0x40;  // any byte but 0 is true
    bool flag = false;
    int number = 0;
    char text[3] = "";
    record.beginOutput();
    EXPECT_TRUE(record.get(&flag) && record.get(&number) && record.get(text, 3));
    EXPECT_TRUE(flag && record.get(bytes, 1) && bytes[0] == 0xAA);
    EXPECT_EQ(-2, number);
    EXPECT_STREQ("ab", text);
}

TEST(ThreadRawMsgTest, TheFirstFailureSticksUntilTheNextBegin) {
    ThreadRawMsg record(9);
    record.beginInput();
    EXPECT_EQ(1, record.set(1));
    EXPECT_EQ(0, record.set(2));
    EXPECT_EQ(0, record.set(true));  // which would have fitted
    EXPECT_EQ(-1, record.getResult());
    record.beginInput();
    EXPECT_EQ(0, record.getResult());
    EXPECT_EQ(1, record.set(1));
    EXPECT_EQ(0, record.set(static_cast<char const*>(nullptr)));
    EXPECT_EQ(-1, record.getResult());

    int number = 0;
    long long wide = 0;
    record.beginOutput();
    EXPECT_EQ(0, record.get(&wide) + record.get(&number));
    record.beginOutput();
    EXPECT_EQ(0, record.getMsgId(nullptr));
    EXPECT_EQ(0, record.getResult());
}

TEST(ThreadRawMsgTest, ATextThatFindsNoRoomMayBeReadAgain) {
    ThreadRawMsg record(12);
    record.beginInput();
    EXPECT_TRUE(record.set("abc") && record.set(0x41414141));  // no terminator up to the end
    char text[9] = "";
    record.beginOutput();
    EXPECT_EQ(0, record.get(text, 3));
    EXPECT_EQ(4u, record.checkOutputStrLength(9));
    EXPECT_EQ(1, record.get(text, 4));
    EXPECT_STREQ("abc", text);
    EXPECT_EQ(0, record.get(text, 9));
    EXPECT_EQ(0, record.getResult());
    EXPECT_EQ(NONE, record.checkOutputStrLength(9));
}

TEST(ThreadRawMsgTest, ALongThatNeedsMoreThan32BitsIsRefusedAndNeverCut) {
    if (sizeof(long) == 4) {
        GTEST_SKIP() << "every long fits";
    }
    auto const above = static_cast<long>(0x80000000ll);
    ThreadRawMsg record(24);
    record.beginInput();
    EXPECT_EQ(0, record.set(above));
    EXPECT_EQ(-1, record.getResult());
    record.beginInput();
    EXPECT_EQ(0, record.set(static_cast<unsigned long>(0x100000000ull)));
    EXPECT_EQ(0, record.setMsgId(above) + SimpleMsg(above).storeTo(&record));
}

TEST(ThreadRawMsgTest, AssignmentTakesThePositionsOverAndACopyDoesNot) {
    ThreadRawMsg record(12);
    int number = 0;
    record.beginInput();
    EXPECT_TRUE(record.set(1) && record.set(2));
    record.beginOutput();
    EXPECT_EQ(1, record.get(&number));

    ThreadRawMsg assigned(4);
    assigned = record;
    EXPECT_TRUE(assigned.get(&number) && number == 2 && !assigned.get(&number));
    ThreadRawMsg copy(assigned);  // which has failed
    EXPECT_EQ(0, copy.getResult());
    copy.beginInput();
    copy.set(9);
    assigned.beginOutput();
    EXPECT_TRUE(assigned.get(&number) && number == 1) << "copies have bytes of their own";
}

}  // namespace
}  // namespace utl
