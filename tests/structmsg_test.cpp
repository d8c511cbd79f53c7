// Typed messages: structs that travel as they are, handlers by type, questions with answers.

#include "UtlStructMsg.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "UtlMsgHandlers.h"

#include "support/LogCapture.h"
#include "support/ManagerTest.h"
#include "support/MessageStation.h"

namespace utl {
namespace {

using test::NumberMsg;

struct Reading {
    std::int32_t sensor;
    float degrees;
};

using ReadingMsg = StructMsg<0x8401, Reading>;
using DoubleMsg = StructMsg<0x8402, std::int32_t, std::int32_t>;
using WideMsg = StructMsg<0x8402, std::int64_t, std::int64_t>;

// The same by hand.
struct HandReadingMsg : Msg {
    HandReadingMsg() : Msg(ID) {}
    static constexpr long ID = ReadingMsg::ID;
    void storeDataTo(MsgDataBroker* broker) const override {
        broker->set(sensor);
        broker->set(degrees);
    }
    void restoreDataFrom(MsgDataBroker& broker) override {
        broker.get(&sensor);
        broker.get(&degrees);
    }
    int sensor = 0;
    float degrees = 0;
};

TEST(StructMsgTest, IsTheSameRecordAsAMessageWrittenByHand) {
    ThreadRawMsg record(12);
    HandReadingMsg hand;
    EXPECT_EQ(2, ReadingMsg({7, 21.5f}).storeTo(&record) + hand.restoreFrom(record));
    EXPECT_TRUE(hand.getMsgId() == 0x8401 && hand.sensor == 7 && hand.degrees == 21.5f);
    hand.sensor = -8;
    ReadingMsg typed;
    EXPECT_EQ(2, hand.storeTo(&record) + typed.restoreFrom(record));
    EXPECT_TRUE(typed.value().sensor == -8 && typed.value().degrees == 21.5f);
}

TEST(StructMsgTest, RefusesAnotherIdAndTooSmallARecordAndStaysAsItWas) {
    ThreadRawMsg other(12);
    ThreadRawMsg small(11);
    EXPECT_TRUE(SimpleMsg(0x8402).storeTo(&other) && SimpleMsg(0x8401).storeTo(&small));
    ReadingMsg msg({7, 21.5f});
    EXPECT_EQ(0, msg.storeTo(&small));
    for (ThreadRawMsg* const record : {&other, &small}) {
        EXPECT_EQ(0, msg.restoreFrom(*record));
        EXPECT_TRUE(msg.getMsgId() == 0x8401 && msg.value().sensor == 7);
    }
}

class MsgHandlersTest : public test::ManagerTest {
protected:
    int receive(Msg const& msg, unsigned long size = 12) {
        ThreadRawMsg record(size);
        msg.storeTo(&record);
        return handlers.receiveMsg(1, record);
    }

    test::LogCapture log;
    MsgHandlers handlers;
    std::vector<int> heard;
};

TEST_F(MsgHandlersTest, CallsTheHandlerOfTheTypeAndOtherwiseTheOneForAllOthers) {
    auto moved = std::make_unique<int>(100);
    EXPECT_TRUE(handlers.on<DoubleMsg>([this, own = std::move(moved)](int number) {
        heard.push_back(*own + number);
        return 0;
    }));
    EXPECT_TRUE(handlers.on<TimerMsg>([this](TimerMsg const& timer) {
        heard.push_back(timer.getTimerId());
        EXPECT_TRUE(handlers.onOther([this](ThreadRawMsg& record) {
            NumberMsg msg(0);
            heard.push_back(msg.restoreFrom(record) ? msg.number : -1);
        }));
    }));
    // Of a class written by hand; a second one for the id is refused.
    EXPECT_TRUE(
        handlers.on<HandReadingMsg>([this](auto const& msg) { heard.push_back(msg.sensor); }));
    EXPECT_FALSE(handlers.on<ReadingMsg>([](Reading const&) {}));

    TimerMsg timer;
    timer.setTimerId(3);
    EXPECT_EQ(0, receive(NumberMsg(0x9000, 1)));
    EXPECT_EQ(0, receive(SimpleMsg(DoubleMsg::ID), 7));
    EXPECT_EQ(1, receive(ReadingMsg({2, 0})) & receive(timer) & receive(NumberMsg(0x9000, 4)));
    EXPECT_EQ(1, receive(NumberMsg(DoubleMsg::ID, 5)));  // nobody asks for the answer
    EXPECT_EQ((std::vector<int>{2, 3, 4, 105}), heard);
    EXPECT_EQ(1u, log.count("MsgHandlers(1) Error. No handler MsgId:0x00009000"));
    EXPECT_EQ(1u, log.count("MsgHandlers(1) Error. Too small MsgId:0x00008402"));
}

// Deals with every message as the test says.
struct HandListener : ThreadMsgListener {
    int receiveMsg(int, ThreadRawMsg& record) override {
        handle(record);
        return 0;
    }
    std::function<void(ThreadRawMsg&)> handle;
};

struct Running : MsgDrivenThread {
    explicit Running(ThreadMsgListener& listener) : MsgDrivenThread(8, 4, "answerer", 0) {
        start(&listener, 0, 0, nullptr, 1, 0, ThreadPriority::NORMAL, 0);
    }
};

TEST_F(MsgHandlersTest, AnswersPassBetweenTypesAndMessagesWrittenByHand) {
    handlers.on<DoubleMsg>([](int number) { return 2 * number; });
    HandListener hand;
    hand.handle = [](ThreadRawMsg& record) {
        NumberMsg msg(0);
        EXPECT_EQ(1, msg.restoreFrom(record));
        msg.number *= 2;
        EXPECT_EQ(1, record.answer(msg));
        EXPECT_EQ(0, record.answer(msg)) << "answered twice";
    };
    for (ThreadMsgListener* const listener :
         {static_cast<ThreadMsgListener*>(&handlers), static_cast<ThreadMsgListener*>(&hand)}) {
        Running thread(*listener);
        EXPECT_EQ(std::optional<int>(14), thread.ask<DoubleMsg>(7));
        NumberMsg answer(DoubleMsg::ID);
        EXPECT_EQ(1, thread.askMsg(NumberMsg(DoubleMsg::ID, 8), &answer));
        EXPECT_EQ(16, answer.number);
        EXPECT_EQ(0, thread.askMsg(SimpleMsg(DoubleMsg::ID), nullptr));
        thread.stop(1, 0);
        EXPECT_EQ(std::nullopt, thread.ask<DoubleMsg>(7));
    }
}

TEST_F(MsgHandlersTest, AQuestionThatBringsNoAnswerBackIsEmptyAndLogsOnce) {
    struct {
        std::function<int(ThreadRawMsg&)> answer;
        int isAnswered;
        char const* line;
    } const cases[] = {
        {[](auto&) { return 0; }, 0, "Not answered MsgId:0x00008402"},
        {[](auto& record) { return record.answer(NumberMsg(0x8403, 1)); }, 1,
         "Refused. Another answer MsgId:0x00008403 Expected:0x00008402"},
        {[](auto& record) { return record.answer(SimpleMsg(0x8402)); }, 1,
         "Refused. Another answer MsgId:0x00008402 Expected:0x00008402"},
        {[](auto& record) { return record.answer(WideMsg(1)); }, 1,
         "Refused. Another answer MsgId:0x00008402 Expected:0x00008402"},
        {[](auto& record) { return record.answer(StructMsg<0x8404, std::array<char, 9>>()); }, 0,
         "Overflow MsgSize  MaxSize(include MsgId):12 MsgId:0x00008404"},
    };
    HandListener hand;
    Running thread(hand);
    for (auto const& [answer, isAnswered, line] : cases) {
        log.clear();
        hand.handle = [&](auto& record) { EXPECT_EQ(isAnswered, answer(record)) << line; };
        EXPECT_EQ(std::nullopt, thread.ask<DoubleMsg>(1)) << line;
        EXPECT_EQ(1u, log.count(std::string("ERR: MsgDrivenThread(answerer) ") + line));
        EXPECT_EQ(1u, log.count("ERR: "));
    }
    // Neither a message nor the thread itself asks.
    hand.handle = [&](auto& record) {
        EXPECT_EQ(0, record.answer(DoubleMsg::AnswerMsg(1)));
        EXPECT_EQ(std::nullopt, thread.ask<DoubleMsg>(1));
    };
    EXPECT_EQ(1, thread.sendMsgSync(0x9000));
}

TEST_F(MsgHandlersTest, AQuestionThatTheEndOfTheThreadComesBeforeIsReleased) {
    test::Gate entered;
    test::Gate released;
    HandListener hand;
    hand.handle = [&](auto&) { entered.open(), released.wait(); };
    Running thread(hand);
    EXPECT_TRUE(thread.postMsg(0x9000) && entered.wait());
    auto asked = test::inThread([&] { return thread.ask<DoubleMsg>(1); });
    EXPECT_TRUE(test::comesTrue([&] { return thread.queuedEntriesForTesting() == 1; }));
    thread.stop(0, 0);
    released.open();
    EXPECT_EQ(std::nullopt, asked.get());
}

}  // namespace
}  // namespace utl
