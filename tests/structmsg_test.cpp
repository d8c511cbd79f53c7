#include "UtlStructMsg.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "UtlMsgHandlers.h"

#include "support/LogCapture.h"
#include "support/ManagerTest.h"
#include "support/MessageStation.h"

namespace utl {
namespace {

using namespace test;

using DoubleMsg = StructMsg<0x8402, std::int32_t, std::int32_t>;
using WideMsg = StructMsg<0x8402, std::int64_t>;

TEST(StructMsgTest, RefusesAnotherIdAndTooSmallARecordAndStaysAsItWas) {
    ThreadRawMsg other(8);
    ThreadRawMsg small(7);
    EXPECT_TRUE(SimpleMsg(0x8403).storeTo(&other) && SimpleMsg(0x8402).storeTo(&small));
    DoubleMsg msg(7);
    EXPECT_EQ(0, msg.storeTo(&small));
    for (ThreadRawMsg* const record : {&other, &small}) {
        EXPECT_EQ(0, msg.restoreFrom(*record));
        EXPECT_TRUE(msg.getMsgId() == DoubleMsg::ID && msg.value() == 7);
    }
}

class MsgHandlersTest : public ManagerTest {
protected:
    int receive(Msg const& msg, unsigned long size = 8) {
        ThreadRawMsg record(size);
        msg.storeTo(&record);
        return handlers.receiveMsg(1, record);
    }

    LogCapture log;
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
    EXPECT_FALSE(handlers.on<DoubleMsg>([](int) { return 0; })) << "the id has a handler";

    TimerMsg timer;
    timer.setTimerId(3);
    EXPECT_EQ(0, receive(NumberMsg(0x9000, 1)));
    EXPECT_EQ(0, receive(SimpleMsg(DoubleMsg::ID), 7));
    EXPECT_EQ(1, receive(timer) & receive(NumberMsg(0x9000, 4)));
    EXPECT_EQ(1, receive(NumberMsg(DoubleMsg::ID, 5)));  // nobody asks for the answer
    EXPECT_EQ((std::vector<int>{3, 4, 105}), heard);
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
        std::shared_ptr<Msg> answer;
        int isTaken;
        char const* line;
    } const cases[] = {
        {nullptr, 0, "Not answered MsgId:0x00008402"},
        {std::make_shared<NumberMsg>(0x8403), 1, "Another answer MsgId:0x00008403 Expected:0x"},
        {std::make_shared<SimpleMsg>(0x8402), 1, "Another answer MsgId:0x00008402 Expected:0x"},
        {std::make_shared<WideMsg>(), 1, "Another answer MsgId:0x00008402 Expected:0x00008402"},
        {std::make_shared<StructMsg<0x8404, std::array<char, 9>>>(), 0,
         "Overflow MsgSize  MaxSize(include MsgId):12 MsgId:0x00008404"},
    };
    HandListener hand;
    Running thread(hand);
    for (auto const& [answer, isTaken, line] : cases) {
        log.clear();
        hand.handle = [&, msg = answer.get(), taken = isTaken](ThreadRawMsg& record) {
            EXPECT_EQ(taken, msg != nullptr ? record.answer(*msg) : 0);
        };
        EXPECT_EQ(std::nullopt, thread.ask<DoubleMsg>(1));
        EXPECT_TRUE(log.count(line) == 1 && log.count("ERR: ") == 1) << line;
    }
    // Neither a message nor the thread itself asks.
    hand.handle = [&](auto& record) {
        EXPECT_EQ(0, record.answer(DoubleMsg::AnswerMsg(1)));
        EXPECT_EQ(std::nullopt, thread.ask<DoubleMsg>(1));
    };
    EXPECT_EQ(1, thread.sendMsgSync(0x9000));
}

}  // namespace
}  // namespace utl
