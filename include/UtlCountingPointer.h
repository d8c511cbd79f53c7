// Shared ownership: copies of a holder share one object, and the last one to let go hands it to a
// policy that says what destroying means.
//
//     SmartPointer<Event> stopped;
//     stopped.set(new (std::nothrow) Event(0, 0));
//     SmartPointer<Event> copy(stopped);  // the event lives until both are gone
//
// | holder                          | holds        | empty   | last release                     |
// |---------------------------------|--------------|---------|----------------------------------|
// | SmartPointer<T>                 | T*           | nullptr | deletes it                       |
// | CountingPointer<T, Destruct>    | T*           | nullptr | Destruct()(pointer)              |
// | SmartHandle<DestructCloseFile>  | a descriptor | 0       | syncs what was written, closes   |
// | Counting<T, Destruct>           | a value      | T()     | Destruct()(value)                |
//
// Copies held by different threads may be made and released at the same time; a single holder is
// used by one thread at a time.

#ifndef UTL_COUNTING_POINTER_H
#define UTL_COUNTING_POINTER_H

#include <atomic>
#include <cstdint>
#include <new>

#include "UtlApi.h"

namespace utl {

// How many holders share an object. Made with a count of 0. Any thread.
class UTL_API RefCounter {
public:
    RefCounter() = default;
    virtual ~RefCounter();
    RefCounter(RefCounter const&) = delete;
    RefCounter& operator=(RefCounter const&) = delete;

    // One holder more.
    void raise();

    // True when the last holder has let go. A count below 0 is logged under the name of the
    // holder's class; nobody destroys anything then.
    bool lower(char const* holderClass);

    // Whether more than one holds it.
    bool isShared() const;

private:
    std::atomic<std::int32_t> lRefCount{0};
};

// Lets one holder reach another's counter.
class UTL_API GetRefCounterInterface {
public:
    virtual ~GetRefCounterInterface();

    // nullptr when the holder is empty.
    virtual RefCounter* actGetRefCounter() const = 0;

    // That of `other`.
    RefCounter* getRefCounter(GetRefCounterInterface const& other) const {
        return other.actGetRefCounter();
    }
};

// What CountingPointer and Counting have in common. `Named` has the static function className().
template <typename Value, typename Destruct, typename Named>
class CountedHolder : public GetRefCounterInterface {
public:
    CountedHolder() = default;
    CountedHolder(CountedHolder const& other) : GetRefCounterInterface(other) { copy(other); }
    // Lets go of what it holds and shares what `other` holds.
    CountedHolder& operator=(CountedHolder const& other) {
        copy(other);
        return *this;
    }
    ~CountedHolder() override { release(); }

    // The value shared, or the empty one.
    Value get() const { return mValue; }

    // Whether others share it.
    bool isShared() const { return mCounter != nullptr && mCounter->isShared(); }

    // Takes sole ownership of `value` after releasing what was held; the empty value empties the
    // holder, and the one held already changes nothing. False without memory: `value` is destroyed,
    // and the holder is as it was.
    bool set(Value value) {
        if (value == mValue) {
            return true;
        }
        RefCounter* counter = nullptr;
        if (value != Value()) {
            counter = new (std::nothrow) RefCounter;
            if (counter == nullptr) {
                Destruct()(value);
                return false;
            }
            counter->raise();
        }
        release();
        mValue = value;
        mCounter = counter;
        return true;
    }

    // Shares what `other` holds after releasing what was held.
    void copy(CountedHolder const& other) {
        Value const value = other.mValue;
        RefCounter* const counter = getRefCounter(other);
        if (counter != nullptr) {
            counter->raise();  // before the release: both may share one object
        }
        release();
        mValue = value;
        mCounter = counter;
    }

    // Lets go; the holder is empty afterwards.
    void release() {
        Value const value = takeLast();
        if (value != Value()) {
            Destruct()(value);
        }
    }

    // The same, but what would be destroyed is the caller's. The empty value when others share it.
    Value takeLast() {
        Value const value = mValue;
        RefCounter* const counter = mCounter;
        mValue = Value();
        mCounter = nullptr;
        if (counter == nullptr || !counter->lower(Named::className())) {
            return Value();
        }
        delete counter;
        return value;
    }

    RefCounter* actGetRefCounter() const override { return mCounter; }

private:
    Value mValue = Value();
    RefCounter* mCounter = nullptr;
};

// What holders of objects are called in the log.
struct CountingPointerName {
    static char const* className() { return "CountingPointer"; }
};

// What holders of values are called there.
struct CountingName {
    static char const* className() { return "Counting"; }
};

// Holds an object by its address.
template <typename T, typename Destruct>
class CountingPointer : public CountedHolder<T*, Destruct, CountingPointerName> {
public:
    T* operator->() const { return this->get(); }
};

// Deletes the object.
template <typename T>
struct DestructPointer {
    // nullptr does no harm.
    void operator()(T* object) const { delete object; }
};

// Holds an object from new.
template <typename T>
class SmartPointer : public CountingPointer<T, DestructPointer<T>> {};

// Holds a value that stands for something, such as a descriptor.
template <typename T, typename Destruct>
class Counting : public CountedHolder<T, Destruct, CountingName> {};

// Holds a descriptor.
template <typename Destruct>
class SmartHandle : public Counting<int, Destruct> {};

// Closes a descriptor; one that can be written to is synced before, and blocks for it. False, and
// logged, when the disk did not take what was written; it is closed all the same. Deliberate:
// descriptor 0 is never closed. It stands for "none", and the library never owns standard input.
struct UTL_API DestructCloseFile {
    // False when the disk did not take what was written.
    bool operator()(int descriptor) const;
};

}  // namespace utl

#endif  // UTL_COUNTING_POINTER_H
