#include "UtlThreadRawMsg.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>

#include "UtlArray.h"
#include "UtlRawMemory.h"

#include "messaging/UtlLoopControl.h"

namespace utl {

namespace {

constexpr int FAILED = -1;

template <typename Stored, typename Value>
bool fits(Value value) {
    return value == static_cast<Value>(static_cast<Stored>(value));
}

}  // namespace

ThreadRawMsg::ThreadRawMsg(unsigned long size)
    : mMaxSize(std::max(size, ID_SIZE)), mBuffer(allocateElements<unsigned char>(mMaxSize)) {
    if (mBuffer == nullptr) {
        mMaxSize = 0;
    }
}

// Deliberate: the positions and the result start afresh here, and are taken over by an assignment.
// A copy is made to be read; an assigned record goes on where the other one was.
ThreadRawMsg::ThreadRawMsg(ThreadRawMsg const& other)
    : MsgDataBroker(other),
      mMaxSize(other.mMaxSize),
      mBuffer(allocateElements<unsigned char>(mMaxSize)) {
    if (mBuffer == nullptr) {
        mMaxSize = 0;
    }
    copyMemory(mBuffer, other.mBuffer, mMaxSize);
}

ThreadRawMsg& ThreadRawMsg::operator=(ThreadRawMsg const& other) {
    if (&other == this) {
        return *this;
    }
    if (mMaxSize != other.mMaxSize) {
        unsigned char* const buffer = allocateElements<unsigned char>(other.mMaxSize);
        if (buffer == nullptr && other.mMaxSize != 0) {
            return *this;
        }
        replaceBuffer(buffer, other.mMaxSize, false);
    }
    copyMemory(mBuffer, other.mBuffer, mMaxSize);
    mWritePosition = other.mWritePosition;
    mReadPosition = other.mReadPosition;
    mResult = other.mResult;
    mIsIdRefused = other.mIsIdRefused;
    return *this;
}

ThreadRawMsg::~ThreadRawMsg() {
    replaceBuffer(nullptr, 0, true);
}

// The old one goes last: at no moment does this own what is freed, for the child of a fork that
// another thread makes may destroy what it finds. Without `isBorrowed` it is this one's to free.
void ThreadRawMsg::replaceBuffer(unsigned char* buffer, unsigned long size, bool isBorrowed) {
    unsigned char* const owned = mIsBorrowed ? nullptr : mBuffer;
    mIsBorrowed = true;
    std::atomic_signal_fence(std::memory_order_seq_cst);
    mBuffer = buffer;
    mMaxSize = size;
    std::atomic_signal_fence(std::memory_order_seq_cst);
    mIsBorrowed = isBorrowed;
    delete[] owned;
}

// Fields of one size are most of a record. Their bytes are moved without a call; a position is
// never so far behind the record that it could wrap here.

template <typename Value>
int ThreadRawMsg::store(Value value) {
    unsigned long const end = mWritePosition + sizeof value;
    if (mResult == FAILED || end > mMaxSize) {
        return fail();
    }
    std::memcpy(mBuffer + mWritePosition, &value, sizeof value);
    mWritePosition = end;
    return 1;
}

template <typename Value>
int ThreadRawMsg::restore(Value* value) {
    unsigned long const end = mReadPosition + sizeof *value;
    if (mResult == FAILED || value == nullptr || end > mMaxSize) {
        return fail();
    }
    std::memcpy(value, mBuffer + mReadPosition, sizeof *value);
    mReadPosition = end;
    return 1;
}

// Where a long is wider than what is stored, a value that needs the width fails like one that finds
// no room.
template <typename Stored, typename Value>
int ThreadRawMsg::storeLong(Value value) {
    return fits<Stored>(value) ? store(static_cast<Stored>(value)) : fail();
}

template <typename Stored, typename Value>
int ThreadRawMsg::restoreLong(Value* value) {
    Stored stored;
    if (!restore(value != nullptr ? &stored : nullptr)) {
        return 0;
    }
    *value = stored;
    return 1;
}

int ThreadRawMsg::beginInput() {
    mResult = mIsIdRefused ? FAILED : 0;
    mIsIdRefused = false;
    mWritePosition = ID_SIZE;
    return 1;
}

int ThreadRawMsg::beginOutput() {
    mResult = 0;
    mReadPosition = ID_SIZE;
    return 1;
}

int ThreadRawMsg::setMsgId(long msgId) {
    mIsIdRefused = mMaxSize == 0 || !fits<std::int32_t>(msgId);
    if (mIsIdRefused) {
        return 0;
    }
    std::int32_t const stored = static_cast<std::int32_t>(msgId);
    std::memcpy(mBuffer, &stored, sizeof stored);
    return 1;
}

int ThreadRawMsg::getMsgId(long* msgId) {
    if (msgId == nullptr || mMaxSize == 0) {
        return 0;
    }
    std::int32_t stored;
    std::memcpy(&stored, mBuffer, sizeof stored);
    *msgId = stored;
    return 1;
}

int ThreadRawMsg::set(bool value) {
    return store(static_cast<unsigned char>(value ? 1 : 0));
}

int ThreadRawMsg::set(unsigned char value) {
    return store(value);
}

int ThreadRawMsg::set(unsigned short value) {
    return store(value);
}

int ThreadRawMsg::set(unsigned long value) {
    return storeLong<std::uint32_t>(value);
}

int ThreadRawMsg::set(unsigned long long value) {
    return store(value);
}

int ThreadRawMsg::set(unsigned int value) {
    return store(value);
}

int ThreadRawMsg::set(signed char value) {
    return store(value);
}

int ThreadRawMsg::set(short value) {
    return store(value);
}

int ThreadRawMsg::set(long value) {
    return storeLong<std::int32_t>(value);
}

int ThreadRawMsg::set(long long value) {
    return store(value);
}

int ThreadRawMsg::set(int value) {
    return store(value);
}

int ThreadRawMsg::set(float value) {
    return store(value);
}

int ThreadRawMsg::set(double value) {
    return store(value);
}

int ThreadRawMsg::set(char const* text) {
    return write(text, text != nullptr ? std::strlen(text) + 1 : 0);
}

int ThreadRawMsg::set(unsigned char const* bytes, unsigned long size) {
    return write(bytes, size);
}

int ThreadRawMsg::get(bool* value) {
    unsigned char stored;
    if (!restore(&stored)) {
        return 0;
    }
    *value = stored != 0;
    return 1;
}

int ThreadRawMsg::get(unsigned char* value) {
    return restore(value);
}

int ThreadRawMsg::get(unsigned short* value) {
    return restore(value);
}

int ThreadRawMsg::get(unsigned long* value) {
    return restoreLong<std::uint32_t>(value);
}

int ThreadRawMsg::get(unsigned long long* value) {
    return restore(value);
}

int ThreadRawMsg::get(unsigned int* value) {
    return restore(value);
}

int ThreadRawMsg::get(signed char* value) {
    return restore(value);
}

int ThreadRawMsg::get(short* value) {
    return restore(value);
}

int ThreadRawMsg::get(long* value) {
    return restoreLong<std::int32_t>(value);
}

int ThreadRawMsg::get(long long* value) {
    return restore(value);
}

int ThreadRawMsg::get(int* value) {
    return restore(value);
}

int ThreadRawMsg::get(float* value) {
    return restore(value);
}

int ThreadRawMsg::get(double* value) {
    return restore(value);
}

int ThreadRawMsg::get(char* text, unsigned long maxLength) {
    unsigned long const length = checkOutputStrLength(maxLength);
    // Deliberate: the result stays as it is. A reader may try again with more room.
    return length != NONE ? read(text, length) : 0;
}

int ThreadRawMsg::get(unsigned char* bytes, unsigned long size) {
    return read(bytes, size);
}

int ThreadRawMsg::answer(Msg const& msg) {
    if (mAnswer == nullptr) {
        return 0;
    }
    LoopControl::Transfer const transfer;
    if (!msg.storeTo(mAnswer)) {
        return 0;
    }
    mAnswer = nullptr;
    return 1;
}

unsigned long ThreadRawMsg::checkOutputStrLength(unsigned long maxLength) const {
    if (mReadPosition >= mMaxSize) {
        return NONE;
    }
    unsigned long const limit = std::min(maxLength, mMaxSize - mReadPosition);
    void const* const begin = mBuffer + mReadPosition;
    void const* const end = std::memchr(begin, 0, limit);
    if (end == nullptr) {
        return NONE;
    }
    return static_cast<unsigned long>(static_cast<unsigned char const*>(end) - mBuffer) -
           mReadPosition + 1;
}

int ThreadRawMsg::fail() {
    mResult = FAILED;
    return 0;
}

int ThreadRawMsg::write(void const* source, unsigned long size) {
    if (mResult == FAILED || source == nullptr || mWritePosition > mMaxSize ||
        size > mMaxSize - mWritePosition) {
        return fail();
    }
    std::memcpy(mBuffer + mWritePosition, source, size);
    mWritePosition += size;
    return 1;
}

int ThreadRawMsg::read(void* destination, unsigned long size) {
    if (mResult == FAILED || destination == nullptr || mReadPosition > mMaxSize ||
        size > mMaxSize - mReadPosition) {
        return fail();
    }
    std::memcpy(destination, mBuffer + mReadPosition, size);
    mReadPosition += size;
    return 1;
}

}  // namespace utl
