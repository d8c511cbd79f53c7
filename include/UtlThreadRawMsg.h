// The flat record in which every message travels: [4-byte id][fields, packed, in the machine's byte
// order]. Nothing says what the fields are; writer and reader agree on their order and types.
//
// | type                              | bytes                                        |
// |-----------------------------------|----------------------------------------------|
// | bool, unsigned and signed char    | 1                                            |
// | unsigned short, short             | 2                                            |
// | unsigned and signed int and long, |                                              |
// | float                             | 4; a long that needs more is refused         |
// | unsigned and signed long long,    |                                              |
// | double                            | 8                                            |
// | text                              | its length and the terminator                |
// | bytes                             | as many as given                             |
//
// The first field that does not fit makes every later one fail too, until the next beginInput() or
// beginOutput(): one look at getResult() after a whole sequence is enough.

#ifndef UTL_THREAD_RAW_MSG_H
#define UTL_THREAD_RAW_MSG_H

#include "UtlApi.h"
#include "UtlMsg.h"

namespace utl {

// Allocates only when it is made or assigned; without memory it has capacity 0 and refuses
// everything. Used by one thread at a time.
class UTL_API ThreadRawMsg : public MsgDataBroker {
public:
    static constexpr unsigned long ID_SIZE = 4;

    // A record of `size` bytes, the id's included, and at least those.
    explicit ThreadRawMsg(unsigned long size);

    // The whole record, to be read and written from its start.
    ThreadRawMsg(ThreadRawMsg const& other);

    // The whole record, with both positions and the result. Changes nothing without memory.
    ThreadRawMsg& operator=(ThreadRawMsg const& other);
    ~ThreadRawMsg() override;

    unsigned char* buffer() { return mBuffer; }
    unsigned char const* buffer() const { return mBuffer; }
    unsigned long maxSize() const { return mMaxSize; }

    int beginInput() override;
    int beginOutput() override;

    // 0, or -1 from the first failure on.
    int getResult() override { return mResult; }

    // 0, here and in the result of the next input, for an id that needs more than 32 bits.
    int setMsgId(long msgId) override;
    int getMsgId(long* msgId) override;

    int set(bool value) override;
    int set(unsigned char value) override;
    int set(unsigned short value) override;
    int set(unsigned long value) override;
    int set(unsigned long long value) override;
    int set(unsigned int value) override;
    int set(signed char value) override;
    int set(short value) override;
    int set(long value) override;
    int set(long long value) override;
    int set(int value) override;
    int set(float value) override;
    int set(double value) override;
    int set(char const* text) override;
    int set(unsigned char const* bytes, unsigned long size) override;

    int get(bool* value) override;  // which must not be null
    int get(unsigned char* value) override;
    int get(unsigned short* value) override;
    int get(unsigned long* value) override;
    int get(unsigned long long* value) override;
    int get(unsigned int* value) override;
    int get(signed char* value) override;
    int get(short* value) override;
    int get(long* value) override;
    int get(long long* value) override;
    int get(int* value) override;
    int get(float* value) override;
    int get(double* value) override;

    // A text that does not fit in `maxLength` bytes is refused without making later ones fail.
    int get(char* text, unsigned long maxLength) override;
    int get(unsigned char* bytes, unsigned long size) override;

    // Answers the message that came in this record, for who waits in askMsg(): once, in the call of
    // the listener, and within the size of the thread's messages. 0 when nobody waits for an answer
    // or has one already, and when it is too large.
    int answer(Msg const& msg);

    // The bytes of the text at the read position with its terminator; NONE when it does not end
    // within `maxLength` bytes.
    unsigned long checkOutputStrLength(unsigned long maxLength) const;

private:
    friend class BorrowedRecord;
    friend class MsgDrivenThread;

    // For records in memory of somebody else.
    ThreadRawMsg() : mMaxSize(0), mBuffer(nullptr), mIsBorrowed(true) {}

    bool isReadToEnd() const { return mReadPosition == mWritePosition; }
    void replaceBuffer(unsigned char* buffer, unsigned long size, bool isBorrowed);
    int fail();
    int write(void const* source, unsigned long size);
    int read(void* destination, unsigned long size);
    template <typename Value>
    int store(Value value);
    template <typename Value>
    int restore(Value* value);
    template <typename Stored, typename Value>
    int storeLong(Value value);
    template <typename Stored, typename Value>
    int restoreLong(Value* value);

    unsigned long mMaxSize;
    unsigned char* mBuffer;
    bool mIsBorrowed = false;  // not to be freed here
    unsigned long mWritePosition = 0;
    unsigned long mReadPosition = 0;
    int mResult = 0;
    bool mIsIdRefused = false;
    ThreadRawMsg* mAnswer = nullptr;  // for what came in this record; never copied
};

}  // namespace utl

#endif  // UTL_THREAD_RAW_MSG_H
