// A listener that knows for each type of message what to call.
//
//     MsgHandlers handlers;
//     handlers.on<ReadingMsg>([&](Reading const& reading) { table.add(reading); });
//     handlers.on<AreaMsg>([](Rectangle const& r) { return r.width * r.height; });  // the answer
//     handlers.on<TimerMsg>([&](TimerMsg const& timer) { ... timer.getTimerId() ... });
//
//     MsgDrivenThread thread(256, 100, "readings", 1);
//     thread.start(&handlers, {});
//
// It makes no difference to the other side: whoever posts, sends or asks with messages written by
// hand is understood, and so is a thread with a listener written by hand.

#ifndef UTL_MSG_HANDLERS_H
#define UTL_MSG_HANDLERS_H

#include <new>
#include <type_traits>
#include <utility>

#include "UtlApi.h"
#include "UtlMap.h"
#include "UtlMsgDrivenThread.h"
#include "UtlStructMsg.h"

namespace utl {

// A message's handler is found by its id in a sorted table; handling allocates nothing. Handlers
// are added before the thread starts, or on the thread.
class UTL_API MsgHandlers : public ThreadMsgListener {
public:
    MsgHandlers();
    ~MsgHandlers() override;
    MsgHandlers(MsgHandlers const&) = delete;
    MsgHandlers& operator=(MsgHandlers const&) = delete;

    // Calls `callable`, which is moved or copied here, with each message of the type M: with its
    // value for a StructMsg, and otherwise with the message itself, whose class has a default
    // constructor and its id as `ID`. For a question the result is the answer; it is dropped when
    // the message was not asked but sent. Allocates. False, and the callable is gone, without
    // memory and when that id has a handler.
    template <typename M, typename Callable>
    bool on(Callable&& callable);

    // Calls `callable` with the record of every message whose id has no handler. False as above.
    template <typename Callable>
    bool onOther(Callable&& callable);

    // 1 when a handler has been called. 0, logged, when there is none for that id, or the record is
    // too small for the type.
    int receiveMsg(int threadId, ThreadRawMsg& msg) override;

private:
    class UTL_API Handler {
    public:
        virtual ~Handler();

        // False when the record does not hold what it should.
        virtual bool handle(ThreadRawMsg& record) = 0;
    };

    template <typename M, typename Callable>
    class Typed;
    template <typename Callable>
    class Other;

    // No message has this id.
    static constexpr long OTHER = -1;

    bool add(long msgId, Handler* handler);

    Map<long, Handler*> mHandlers;  // owned
};

// What concerns StructMsg and classes written by hand alike.
template <typename M, typename = void>
struct MsgTraits {
    using Value = M;      // what a handler is given
    using Answer = void;  // what it returns
    static M const& value(M const& msg) { return msg; }
};

// Of a StructMsg.
template <typename M>
struct MsgTraits<M, std::void_t<typename M::Value, typename M::Answer>> {
    using Value = typename M::Value;    // the struct
    using Answer = typename M::Answer;  // of a question
    static Value const& value(M const& msg) { return msg.value(); }
};

// Takes messages of type M out of their records.
template <typename M, typename Callable>
class MsgHandlers::Typed : public Handler {
public:
    template <typename Given>
    explicit Typed(Given&& callable) : mCallable(std::forward<Given>(callable)) {}

    bool handle(ThreadRawMsg& record) override {
        M msg;
        if (!msg.restoreFrom(record)) {
            return false;
        }
        if constexpr (std::is_void_v<typename MsgTraits<M>::Answer>) {
            mCallable(MsgTraits<M>::value(msg));
        } else {
            record.answer(typename M::AnswerMsg(mCallable(msg.value())));
        }
        return true;
    }

private:
    Callable mCallable;
};

// Takes the records as they are.
template <typename Callable>
class MsgHandlers::Other : public Handler {
public:
    template <typename Given>
    explicit Other(Given&& callable) : mCallable(std::forward<Given>(callable)) {}

    bool handle(ThreadRawMsg& record) override {
        mCallable(record);
        return true;
    }

private:
    Callable mCallable;
};

template <typename M, typename Callable>
bool MsgHandlers::on(Callable&& callable) {
    using Kept = std::decay_t<Callable>;
    using Value = typename MsgTraits<M>::Value;
    using Answer = typename MsgTraits<M>::Answer;
    static_assert(std::is_base_of_v<Msg, M>, "A handler is for a class that derives from Msg.");
    static_assert(M::ID == TimerMsg::ID || isApplicationMsgId(M::ID),
                  "A handler is for an id that an application's message can have.");
    static_assert(std::is_invocable_v<Kept&, Value const&>,
                  "A handler is called with the value of a StructMsg, or with the message itself.");
    if constexpr (std::is_invocable_v<Kept&, Value const&>) {
        using Result = std::invoke_result_t<Kept&, Value const&>;
        constexpr bool isAnswer =
            std::is_void_v<Answer> ? std::is_void_v<Result> : std::is_convertible_v<Result, Answer>;
        static_assert(isAnswer,
                      "A handler returns the answer that its message names, and nothing when that "
                      "names none.");
    }
    return add(M::ID, new (std::nothrow) Typed<M, Kept>(std::forward<Callable>(callable)));
}

template <typename Callable>
bool MsgHandlers::onOther(Callable&& callable) {
    using Kept = std::decay_t<Callable>;
    static_assert(std::is_invocable_v<Kept&, ThreadRawMsg&>,
                  "The handler of all other messages is called with the record, ThreadRawMsg&.");
    return add(OTHER, new (std::nothrow) Other<Kept>(std::forward<Callable>(callable)));
}

}  // namespace utl

#endif  // UTL_MSG_HANDLERS_H
