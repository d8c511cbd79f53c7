// Messages between threads. A message is a small object with an id and fields of its own; to cross
// threads it writes its fields into a broker, and a message of the same class reads them back in
// the same order.
//
//     class LineMsg : public Msg {
//     public:
//         LineMsg() : Msg(LINE) {}
//         void storeDataTo(MsgDataBroker* broker) const override {
//             broker->set(mNumber);
//             broker->set(mText);
//         }
//         void restoreDataFrom(MsgDataBroker& broker) override {
//             broker.get(&mNumber);
//             broker.get(mText, sizeof mText);
//         }
//         ...
//     };
//
// Fields that make a struct of their own need no such class: see UtlStructMsg.h.
//
// Ids of an application's messages are 0x8000 or more; 0x83F0 and 0x83FB to 0x83FF are reserved.

#ifndef UTL_MSG_H
#define UTL_MSG_H

#include "UtlApi.h"

namespace utl {

// Whether `msgId` may be the id of an application's message.
constexpr bool isApplicationMsgId(long long msgId) {
    bool const isControlId = msgId == 0x83F0 || (msgId >= 0x83FB && msgId <= 0x83FF);
    return msgId >= 0x8000 && msgId <= 0x7FFFFFFF && !isControlId;
}

// Where a message is written to and read from. Operations return 1 for done and 0 for refused. Used
// by one thread at a time.
class UTL_API MsgDataBroker {
public:
    virtual ~MsgDataBroker();

    // Bracket the writing and the reading of fields. These do nothing and return 1.
    virtual int beginInput();
    virtual int endInput();
    virtual int beginOutput();
    virtual int endOutput();

    // 0 while everything since the last begin succeeded. This one always returns 0.
    virtual int getResult();

    // The id comes first.
    virtual int setMsgId(long msgId) = 0;
    virtual int getMsgId(long* msgId) = 0;

    // Write a field; a text with its terminator.
    virtual int set(bool value) = 0;
    virtual int set(unsigned char value) = 0;
    virtual int set(unsigned short value) = 0;
    virtual int set(unsigned long value) = 0;
    virtual int set(unsigned long long value) = 0;
    virtual int set(unsigned int value) = 0;
    virtual int set(signed char value) = 0;
    virtual int set(short value) = 0;
    virtual int set(long value) = 0;
    virtual int set(long long value) = 0;
    virtual int set(int value) = 0;
    virtual int set(float value) = 0;
    virtual int set(double value) = 0;
    virtual int set(char const* text) = 0;
    virtual int set(unsigned char const* bytes, unsigned long size) = 0;

    // Read the next field.
    virtual int get(bool* value) = 0;
    virtual int get(unsigned char* value) = 0;
    virtual int get(unsigned short* value) = 0;
    virtual int get(unsigned long* value) = 0;
    virtual int get(unsigned long long* value) = 0;
    virtual int get(unsigned int* value) = 0;
    virtual int get(signed char* value) = 0;
    virtual int get(short* value) = 0;
    virtual int get(long* value) = 0;
    virtual int get(long long* value) = 0;
    virtual int get(int* value) = 0;
    virtual int get(float* value) = 0;
    virtual int get(double* value) = 0;

    // A text with its terminator, into `maxLength` bytes; bytes, exactly `size` of them.
    virtual int get(char* text, unsigned long maxLength) = 0;
    virtual int get(unsigned char* bytes, unsigned long size) = 0;
};

// The base of all messages. Used by one thread at a time.
class UTL_API Msg {
public:
    explicit Msg(long msgId) : mMsgId(msgId) {}
    virtual ~Msg();

    long getMsgId() const { return mMsgId; }

    // Writes the id and the fields. 1 when the broker took them all; 0 otherwise, and for a null
    // broker.
    int storeTo(MsgDataBroker* broker) const;

    // Takes over the id that is stored, whatever it is, and reads the fields. 1 when the broker had
    // them all.
    int restoreFrom(MsgDataBroker& broker);

protected:
    Msg(Msg const&) = default;
    Msg& operator=(Msg const&) = default;

    // Write the fields and read them back, in the same order. Locks of a thread may be held
    // meanwhile: what these functions ask of any message-driven thread is refused, and they must
    // not wait for anybody.
    virtual void storeDataTo(MsgDataBroker* broker) const = 0;
    virtual void restoreDataFrom(MsgDataBroker& broker) = 0;

private:
    long mMsgId;
};

// Carries nothing but its id.
class UTL_API SimpleMsg : public Msg {
public:
    explicit SimpleMsg(long msgId) : Msg(msgId) {}

protected:
    void storeDataTo(MsgDataBroker* broker) const override;
    void restoreDataFrom(MsgDataBroker& broker) override;
};

// What a message-driven thread delivers when one of its timers expires.
class UTL_API TimerMsg : public Msg {
public:
    static constexpr long ID = 1;

    TimerMsg() : Msg(ID) {}

    // The id that setTimer() gave; -1 at first.
    int getTimerId() const { return mTimerId; }
    void setTimerId(int timerId) { mTimerId = timerId; }

protected:
    void storeDataTo(MsgDataBroker* broker) const override;
    void restoreDataFrom(MsgDataBroker& broker) override;

private:
    int mTimerId = -1;
};

}  // namespace utl

#endif  // UTL_MSG_H
