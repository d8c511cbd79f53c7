// A message whose fields are a struct, so that nobody writes storeDataTo() and restoreDataFrom() by
// hand.
//
//     struct Reading {
//         std::int32_t sensor;
//         double degrees;
//     };
//     using ReadingMsg = StructMsg<0x8401, Reading>;
//
//     thread.postMsg(ReadingMsg({7, 21.5}));
//
// The struct travels as its bytes, padding included, behind the id: a message written by hand that
// stores the same bytes is the same message. A struct with a `long` has other bytes on other
// machines; threads of one process always agree.
//
// A message that is a question names the type of its answer as well, which comes back under the
// same id:
//
//     using AreaMsg = StructMsg<0x8402, Rectangle, double>;
//
//     std::optional<double> const area = thread.ask<AreaMsg>({3, 4});
//
// Who receives such messages is best told by their types too: see UtlMsgHandlers.h.

#ifndef UTL_STRUCT_MSG_H
#define UTL_STRUCT_MSG_H

#include <type_traits>

#include "UtlMsg.h"

namespace utl {

// Used by one thread at a time.
template <long MSG_ID, typename T, typename AnswerT = void>
class StructMsg : public Msg {
public:
    static constexpr long ID = MSG_ID;

    // In bytes, of a value, and what it may be: every place in a queue is as large as the largest
    // message.
    static constexpr unsigned long SIZE = sizeof(T);
    static constexpr unsigned long MAX_SIZE = 65536;

    using Value = T;                               // the struct
    using Answer = AnswerT;                        // void unless this is a question
    using AnswerMsg = StructMsg<MSG_ID, AnswerT>;  // what comes back

    static_assert(isApplicationMsgId(MSG_ID),
                  "The id of a StructMsg is 0x8000 to 0x7FFFFFFF, but for 0x83F0 and 0x83FB to "
                  "0x83FF, which the library needs itself.");
    static_assert(std::is_trivially_copyable_v<T>,
                  "The value of a StructMsg travels as bytes: it has to be trivially copyable.");
    static_assert(std::is_default_constructible_v<T> && std::is_copy_constructible_v<T>,
                  "The value of a StructMsg is copied, and read into a default-constructed one; an "
                  "array goes into a struct.");
    static_assert(SIZE <= MAX_SIZE, "The value of a StructMsg has at most 65536 bytes.");

    StructMsg() : Msg(ID), mValue() {}
    explicit StructMsg(T const& value) : Msg(ID), mValue(value) {}

    T const& value() const { return mValue; }
    T& value() { return mValue; }

protected:
    void storeDataTo(MsgDataBroker* broker) const override {
        broker->set(reinterpret_cast<unsigned char const*>(&mValue), SIZE);
    }

    // A record with another id, or without room for a value, is refused and changes nothing.
    void restoreDataFrom(MsgDataBroker& broker) override {
        bool const isOwn = getMsgId() == ID;
        if (!isOwn) {
            Msg::operator=(SimpleMsg(ID));  // the base has taken over the id that is stored
        }
        broker.get(isOwn ? reinterpret_cast<unsigned char*>(&mValue) : nullptr, SIZE);
    }

private:
    T mValue;
};

}  // namespace utl

#endif  // UTL_STRUCT_MSG_H
