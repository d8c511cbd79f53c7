#include "UtlString.h"

#include <algorithm>
#include <functional>
#include <new>
#include <utility>

#include "UtlRawMemory.h"

#include "text/UtlUtf8.h"

namespace utl {
namespace {

// The length of `s` cut to at most `maxBytes` on a character; text without a boundary, which is
// malformed, is cut away.
unsigned long cutLength(char const* s, unsigned long maxBytes) {
    unsigned long const length = utf8::cutBack(s, utf8::boundedLength(s, maxBytes));
    return length != NONE ? length : 0;
}

unsigned long countMatches(char const* s, char const* pattern, unsigned long offset) {
    unsigned long matches = 0;
    for (char const* rest = s + offset;; ++matches) {
        unsigned long end = NONE;
        if (findStr(rest, pattern, 0, &end) == NONE) {
            return matches;
        }
        if (end == NONE) {
            return matches + 1;  // an empty pattern is found once, at the end
        }
        rest += end;
    }
}

template <typename CharT>
void appendCopies(Array<BasicString<CharT>>& found, BasicString<CharT> const& pattern,
                  unsigned long matches, unsigned long* foundCount) {
    for (unsigned long i = 0; i < matches; ++i) {
        if (!found.insertAt(found.count(), pattern)) {
            return;
        }
        if (found[found.count() - 1].length() != pattern.length()) {
            found.eraseAt(found.count() - 1, 1);  // no memory for the text
            return;
        }
        if (foundCount != nullptr) {
            ++*foundCount;
        }
    }
}

}  // namespace

template <typename CharT>
BasicString<CharT>::BasicString() : mText(&EMPTY_CHAR), mCapacity(1), mGrowMode(FIXED) {}

template <typename CharT>
BasicString<CharT>::BasicString(unsigned long size, int growMode) : BasicString() {
    mGrowMode = growMode;
    unsigned long const capacity = std::max(size, 1UL);
    Buffer buffer(new (std::nothrow) CharT[capacity]());
    if (buffer != nullptr) {
        adopt(std::move(buffer), capacity);
    }
}

template <typename CharT>
BasicString<CharT>::BasicString(CharT const* s, unsigned long size, int growMode)
    : BasicString(std::max(t_strlen(s) + 1, size), growMode) {
    if (s != nullptr && mOwned != nullptr) {
        copyStr(mOwned.get(), mCapacity, s, ALL, WHOLE);
    }
}

template <typename CharT>
BasicString<CharT>::BasicString(BasicString const& other, unsigned long size, int growMode)
    : BasicString(other.mText, size, growMode) {}

template <typename CharT>
BasicString<CharT>::~BasicString() = default;

template <typename CharT>
BasicString<CharT>& BasicString<CharT>::operator=(CharT const* s) {
    CharT const* const text = s != nullptr ? s : &EMPTY_CHAR;
    store(text, ALL, WHOLE, std::max(mCapacity, t_strlen(text) + 1));
    return *this;
}

template <typename CharT>
BasicString<CharT>& BasicString<CharT>::operator=(BasicString const& other) {
    return *this = other.mText;
}

// An Array that grows or closes a gap moves its strings: nothing is allocated, so no text is lost
// there. The capacity is what the copy would have taken.
template <typename CharT>
BasicString<CharT>& BasicString<CharT>::operator=(BasicString&& other) noexcept {
    unsigned long const needed = other.length() + 1;
    if (other.mOwned == nullptr || needed <= mCapacity) {
        return *this = other.mText;
    }
    adopt(std::move(other.mOwned), needed);
    other.shareEmpty();
    return *this;
}

template <typename CharT>
unsigned long BasicString<CharT>::length() const {
    return t_strlen(mText);
}

template <typename CharT>
int BasicString<CharT>::copy(CharT const* s, unsigned long count, int trunc) {
    if (s == nullptr) {
        return 0;
    }
    unsigned long const needed = utf8::boundedLength(s, count) + 1;
    return store(s, count, trunc, mGrowMode == GROWS ? std::max(mCapacity, needed) : mCapacity);
}

template <typename CharT>
int BasicString<CharT>::copy(BasicString const& other, unsigned long count, int trunc) {
    if (&other != this) {
        return copy(other.mText, count, trunc);
    }
    if (count >= length()) {
        return 1;
    }
    return edit(capacityForText(), false, [count](CharT* text, unsigned long) {
        unsigned long const kept = cutLength(text, count);
        text[kept] = '\0';
        return kept;
    });
}

template <typename CharT>
int BasicString<CharT>::copyShallow(CharT const* s) {
    if (s == nullptr) {
        return 0;
    }
    if (holds(s)) {
        moveMemory(mOwned.get(), s, t_strlen(s) + 1);
        return 1;
    }
    mOwned.reset();
    mText = s;
    return 1;
}

template <typename CharT>
int BasicString<CharT>::combine(CharT const* s, unsigned long count, int trunc) {
    if (s == nullptr) {
        return count == 0;
    }
    unsigned long const needed = length() + 1 + utf8::boundedLength(s, count);
    unsigned long const capacity = capacityForText();
    return append(s, count, trunc, mGrowMode == GROWS ? std::max(capacity, needed) : capacity);
}

template <typename CharT>
BasicString<CharT>& BasicString<CharT>::operator+=(CharT const* s) {
    CharT const* const text = s != nullptr ? s : &EMPTY_CHAR;
    unsigned long const added = t_strlen(text);
    unsigned long const capacity = capacityForText();
    bool const fits = added < capacity - length();
    // Deliberate: by all that is added, not by what is missing; callers append again and again.
    append(text, ALL, WHOLE, fits ? capacity : capacity + 1 + added);
    return *this;
}

template <typename CharT>
int BasicString<CharT>::resizeMax(unsigned long capacity) {
    if (capacity == mCapacity) {
        return 1;
    }
    if (capacity <= 1) {
        shareEmpty();
        return 1;
    }
    Buffer buffer = copyText(capacity);
    if (buffer == nullptr) {
        return 0;
    }
    adopt(std::move(buffer), capacity);
    return 1;
}

template <typename CharT>
unsigned long BasicString<CharT>::enumerate(CharT const* pattern, unsigned long offset,
                                            Array<BasicString>* found,
                                            unsigned long* foundCount) const {
    if (pattern == nullptr) {
        return NONE;
    }
    // A copy: the pattern may be the text of an element of `found`, which is emptied.
    Array<BasicString> patterns(1, Array<BasicString>::FIXED);
    if (!patterns.setCount(1) || !patterns[0].store(pattern, ALL, WHOLE, t_strlen(pattern) + 1)) {
        return NONE;
    }
    return enumAllOf(patterns, offset, found, foundCount);
}

template <typename CharT>
unsigned long BasicString<CharT>::enumAllOf(Array<BasicString> const& patterns,
                                            unsigned long offset, Array<BasicString>* found,
                                            unsigned long* foundCount) const {
    if (utf8::boundedLength(mText, offset) < offset) {
        return NONE;
    }
    if (found != nullptr) {
        found->setCount(0);
    }
    if (foundCount != nullptr) {
        *foundCount = 0;
    }
    unsigned long total = 0;
    for (unsigned long i = 0; i < patterns.count(); ++i) {
        unsigned long const matches = countMatches(mText, patterns[i].mText, offset);
        if (found != nullptr) {
            appendCopies(*found, patterns[i], matches, foundCount);
        }
        total += matches;
    }
    return total;
}

template <typename CharT>
int BasicString<CharT>::replace(CharT const* from, CharT const* to, int trunc) {
    if (from == nullptr || to == nullptr) {
        return 0;
    }
    unsigned long capacity = capacityForText();
    if (mGrowMode == GROWS) {
        // Right for a shorter `to` as well: what wraps here wraps back in the sum.
        unsigned long const change = t_strlen(to) - t_strlen(from);
        capacity = std::max(capacity, length() + 1 + countMatches(mText, from, 0) * change);
    }
    return edit(capacity, holds(from) || holds(to), [=](CharT* text, unsigned long size) {
        return replaceStr(text, size, from, to, trunc);
    });
}

// Makes the text the first `count` bytes of `s`.
template <typename CharT>
int BasicString<CharT>::store(CharT const* s, unsigned long count, int trunc,
                              unsigned long capacity) {
    // Deliberate: a count of 0 leaves the text as it is, as it does in copyGeneral(). An empty
    // text stays shared when it becomes an empty text.
    if (count == 0 || (*s == '\0' && *mText == '\0')) {
        return 1;
    }
    return edit(capacity, false, [=](CharT* text, unsigned long size) {
        return copyStr(text, size, s, count, trunc);
    });
}

template <typename CharT>
int BasicString<CharT>::append(CharT const* s, unsigned long count, int trunc,
                               unsigned long capacity) {
    if (count == 0 || *s == '\0') {
        return 1;
    }
    return edit(capacity, false, [=](CharT* text, unsigned long size) {
        return combineStr<CharT>(text, size, text, s, count, trunc);
    });
}

// Has `write` change the text, in place if it is in a buffer of its own with that capacity, and
// else (or if `apart` is set) in a new buffer. The old one is still there while `write` reads from
// it, and stays if `write` returns NONE.
template <typename CharT>
template <typename Write>
int BasicString<CharT>::edit(unsigned long capacity, bool apart, Write write) {
    if (mOwned != nullptr && capacity == mCapacity && !apart) {
        return write(mOwned.get(), capacity) != NONE;
    }
    Buffer buffer = copyText(capacity);
    if (buffer == nullptr || write(buffer.get(), capacity) == NONE) {
        return 0;
    }
    adopt(std::move(buffer), capacity);
    return 1;
}

// A new buffer with the text, cut to it; null without memory.
template <typename CharT>
typename BasicString<CharT>::Buffer BasicString<CharT>::copyText(unsigned long capacity) const {
    Buffer buffer(new (std::nothrow) CharT[capacity]);
    if (buffer != nullptr) {
        unsigned long const length = cutLength(mText, capacity - 1);
        copyMemory(buffer.get(), mText, length);
        buffer[length] = '\0';
    }
    return buffer;
}

template <typename CharT>
void BasicString<CharT>::adopt(Buffer buffer, unsigned long capacity) {
    mOwned = std::move(buffer);
    mText = mOwned.get();
    mCapacity = capacity;
}

template <typename CharT>
void BasicString<CharT>::shareEmpty() {
    mOwned.reset();
    mText = &EMPTY_CHAR;
    mCapacity = 1;
}

// A borrowed text may be longer than the capacity allows.
template <typename CharT>
unsigned long BasicString<CharT>::capacityForText() const {
    return std::max(mCapacity, length() + 1);
}

// Whether `s` points into the buffer of this string.
template <typename CharT>
bool BasicString<CharT>::holds(CharT const* s) const {
    std::less<CharT const*> const before;
    return mOwned != nullptr && !before(s, mText) && before(s, mText + mCapacity);
}

template <typename CharT>
BasicString<CharT> operator+(CharT const* left, BasicString<CharT> const& right) {
    BasicString<CharT> sum(left, t_strlen(left) + right.length() + 1, BasicString<CharT>::FIXED);
    sum.combine(right.c_str(), ALL, WHOLE);
    return sum;
}

template class BasicString<char>;
template BasicString<char> operator+<char>(char const*, BasicString<char> const&);

}  // namespace utl
