#include "UtlString.h"

#include <algorithm>
#include <functional>
#include <new>
#include <utility>

#include "UtlRawMemory.h"

#include "text/UtlUtf8.h"

namespace utl {
namespace {

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
    Buffer buffer = allocate(capacity);
    if (buffer.text != nullptr) {
        clearStrBuffer(buffer.text.get(), capacity);
        adopt(std::move(buffer), 0, capacity);
    }
}

template <typename CharT>
BasicString<CharT>::BasicString(CharT const* s, unsigned long size, int growMode)
    : BasicString(std::max(t_strlen(s) + 1, size), growMode) {
    if (s != nullptr && mOwned.text != nullptr) {
        mLength = copyStr(mOwned.text.get(), mCapacity, s, ALL, WHOLE) - 1;  // there is room
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
    unsigned long const length = other.length();
    if (other.mOwned.text == nullptr || length < mCapacity) {
        return *this = other.mText;
    }
    adopt(std::move(other.mOwned), length, length + 1);
    other.shareEmpty();
    return *this;
}

template <typename CharT>
unsigned long BasicString<CharT>::length() const {
    return mOwned.text != nullptr ? mLength : t_strlen(mText);
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
    return cut(count, capacityForText(), false);
}

template <typename CharT>
int BasicString<CharT>::copy(std::basic_string_view<CharT> text, int trunc) {
    unsigned long const needed = utf8::wholeLength(text) + 1;
    return storeView(0, text, trunc, mGrowMode == GROWS ? std::max(mCapacity, needed) : mCapacity);
}

template <typename CharT>
BasicString<CharT>& BasicString<CharT>::operator=(std::basic_string_view<CharT> text) {
    storeView(0, text, WHOLE, std::max(mCapacity, utf8::wholeLength(text) + 1));
    return *this;
}

template <typename CharT>
int BasicString<CharT>::copyShallow(CharT const* s) {
    if (s == nullptr) {
        return 0;
    }
    if (holds(s)) {
        mLength = t_strlen(s);
        moveMemory(mOwned.text.get(), s, mLength + 1);
        return 1;
    }
    mOwned = {};
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
int BasicString<CharT>::combine(std::basic_string_view<CharT> text, int trunc) {
    unsigned long const needed = length() + 1 + utf8::wholeLength(text);
    unsigned long const capacity = capacityForText();
    return storeView(length(), text, trunc,
                     mGrowMode == GROWS ? std::max(capacity, needed) : capacity);
}

template <typename CharT>
BasicString<CharT>& BasicString<CharT>::operator+=(CharT const* s) {
    CharT const* const text = s != nullptr ? s : &EMPTY_CHAR;
    append(text, ALL, WHOLE, capacityWith(t_strlen(text)));
    return *this;
}

template <typename CharT>
BasicString<CharT>& BasicString<CharT>::operator+=(std::basic_string_view<CharT> text) {
    storeView(length(), text, WHOLE, capacityWith(utf8::wholeLength(text)));
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
    // What uses no more than half of its memory gives that back.
    return cut(capacity - 1, capacity, capacity <= mOwned.size / 2);
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
    bool const apart = capacity != mCapacity || holds(from) || holds(to);
    int const result = edit(capacity, apart, [=](CharT* text, unsigned long size) {
        return std::max(replaceStr(text, size, from, to, trunc), 1UL);  // 0 for a copy of nothing
    });
    mLength = t_strlen(mText);  // what finds no room may be there in part
    return result;
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
    return edit(capacity, false, [=, end = length()](CharT* text, unsigned long size) {
        return copyGeneral<CharT>(text, size, end, s, 0, count, trunc);
    });
}

// Makes the text from `pos` on that of the view.
template <typename CharT>
int BasicString<CharT>::storeView(unsigned long pos, std::basic_string_view<CharT> text, int trunc,
                                  unsigned long capacity) {
    if (utf8::wholeLength(text) == 0 && pos == length()) {
        return 1;  // an empty text stays shared
    }
    return edit(capacity, false, [=](CharT* dst, unsigned long size) {
        unsigned long const used = copyStr(dst + pos, size - pos, text, trunc);
        return used != NONE ? pos + used : NONE;
    });
}

// Cuts the text to at most `maxBytes`.
template <typename CharT>
int BasicString<CharT>::cut(unsigned long maxBytes, unsigned long capacity, bool apart) {
    return edit(capacity, apart, [end = cutLength(maxBytes)](CharT* text, unsigned long) {
        text[end] = '\0';
        return end + 1;
    });
}

// Has `write` change the text, in place if there is memory of its own for that capacity, and else
// (or if `apart` is set) in a new buffer. The old one is still there while `write` reads from it,
// and stays if `write` returns NONE; what else it returns is the bytes of the text.
template <typename CharT>
template <typename Write>
int BasicString<CharT>::edit(unsigned long capacity, bool apart, Write write) {
    if (mOwned.text != nullptr && capacity <= mOwned.size && !apart) {
        unsigned long const used = write(mOwned.text.get(), capacity);
        if (used == NONE) {
            return 0;
        }
        mLength = used - 1;
        mCapacity = capacity;
        return 1;
    }
    Buffer buffer = copyText(capacity);
    unsigned long const used = buffer.text != nullptr ? write(buffer.text.get(), capacity) : NONE;
    if (used == NONE) {
        return 0;
    }
    adopt(std::move(buffer), used - 1, capacity);
    return 1;
}

// A new buffer for `capacity` bytes, without a text if there is no memory. More than that where the
// text is to grow, so that adding to it a little at a time does not move it each time; but just
// what is needed rather than none.
template <typename CharT>
typename BasicString<CharT>::Buffer BasicString<CharT>::allocate(unsigned long capacity) const {
    unsigned long const ample = mOwned.size + mOwned.size / 2;
    Buffer buffer;
    buffer.size = capacity > mOwned.size ? std::max(capacity, ample) : capacity;
    buffer.text.reset(new (std::nothrow) CharT[buffer.size]);
    if (buffer.text == nullptr && buffer.size != capacity) {
        buffer.size = capacity;
        buffer.text.reset(new (std::nothrow) CharT[capacity]);
    }
    return buffer;
}

// The same with the text in it, cut to that.
template <typename CharT>
typename BasicString<CharT>::Buffer BasicString<CharT>::copyText(unsigned long capacity) const {
    Buffer buffer = allocate(capacity);
    if (buffer.text != nullptr) {
        unsigned long const kept = cutLength(capacity - 1);
        copyMemory(buffer.text.get(), mText, kept);
        buffer.text[kept] = '\0';
    }
    return buffer;
}

template <typename CharT>
void BasicString<CharT>::adopt(Buffer buffer, unsigned long length, unsigned long capacity) {
    mOwned = std::move(buffer);
    mText = mOwned.text.get();
    mLength = length;
    mCapacity = capacity;
}

template <typename CharT>
void BasicString<CharT>::shareEmpty() {
    mOwned = {};
    mText = &EMPTY_CHAR;
    mCapacity = 1;
}

// What is left when the text is cut to at most `maxBytes` on a character; nothing of one without a
// boundary, which is malformed.
template <typename CharT>
unsigned long BasicString<CharT>::cutLength(unsigned long maxBytes) const {
    unsigned long const kept = utf8::cutBack(mText, std::min(length(), maxBytes));
    return kept != NONE ? kept : 0;
}

// A borrowed text may be longer than the capacity allows.
template <typename CharT>
unsigned long BasicString<CharT>::capacityForText() const {
    return std::max(mCapacity, length() + 1);
}

// What operator+= takes for that many bytes more. Deliberate: by all that is added, not by what is
// missing; callers append again and again.
template <typename CharT>
unsigned long BasicString<CharT>::capacityWith(unsigned long added) const {
    unsigned long const capacity = capacityForText();
    return added < capacity - length() ? capacity : capacity + 1 + added;
}

// Whether `s` points into the buffer of this string.
template <typename CharT>
bool BasicString<CharT>::holds(CharT const* s) const {
    std::less<CharT const*> const before;
    return mOwned.text != nullptr && !before(s, mText) && before(s, mText + mOwned.size);
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
