// Bounded string functions over UTF-8, the string that owns its text, and the scratch memory for
// work in place.
//
//     char line[64];
//     unsigned long used = copyStr(line, sizeof line, name, ALL, TRUNCATE);
//     used = combineStr(line, sizeof line, line, ": ready", ALL, TRUNCATE);
//
//     BasicString<char> title("Log of ", 0, BasicString<char>::GROWS);
//     title += name;
//
// Text ends at its terminator. Sizes, positions and counts are bytes, never characters. A function
// that stores text takes `dst` and its `size`; it returns the bytes then used with the terminator,
// so that the next piece goes to that result less 1, and NONE for failure. What it leaves in `dst`
// after a failure is not said. A `size` of 0 asks what would be needed and writes nothing. Text
// that is cut ends on a whole character. A null text fails where that is said and is empty
// elsewhere. `dst` and what is read may overlap only where that is said.
//
// The templates exist for char. No function allocates, and only one that uses a WorkingBuffer, as
// is said there, may block. Any thread may call them on text that no other one changes.

#ifndef UTL_STRING_H
#define UTL_STRING_H

#include <memory>
#include <string_view>

#include "UtlApi.h"
#include "UtlArray.h"

namespace utl {

// A count without limit.
constexpr unsigned long ALL = NONE;

// What to do with text that finds no room. TRUNCATE: store as many whole characters as fit.
// WHOLE, like any other value: fail.
constexpr int TRUNCATE = 1;
constexpr int WHOLE = 0;

// The shared empty texts; constant from before any static constructor runs.
extern UTL_API char const EMPTY_CHAR;
extern UTL_API wchar_t const EMPTY_WCHAR;

// Measuring.

// 0 for null.
template <typename CharT>
UTL_API unsigned long t_strlen(CharT const* s);

// The bytes of the first character; 0 at the end of the text and for null; NONE where no character
// starts or the one that does is overlong or incomplete. A byte order mark is one character of 3
// bytes wherever it stands. `isBom`, if given, is set to whether one stands here.
template <typename CharT>
UTL_API unsigned long t_charlen(CharT const* s, bool* isBom = nullptr);

// The same, but 0 for an overlong or incomplete character: NONE is left for a byte that cannot
// start one.
template <typename CharT>
UTL_API unsigned long strCharBytesBase(CharT const* s, bool* isBom = nullptr);

// The character boundary next to `index`: towards the start for a `mode` of 1, else towards the
// end; the length of a shorter text. NONE for null and for a malformed character on the way.
template <typename CharT>
UTL_API unsigned long getNearCharIndex(CharT const* s, unsigned long index, int mode);

// Copying and cutting.

// Stores at most `maxLen` bytes of `src`, cut back to a whole character. NONE when `size` has no
// room for the uncut bytes and the terminator, 0 included. The buffers may overlap.
template <typename CharT>
UTL_API unsigned long t_strncpy(CharT* dst, unsigned long size, CharT const* src,
                                unsigned long maxLen);

// Stores at most `count` bytes of `src` from `srcPos` on at `dst` + `dstPos`. A `count` of 0
// returns `dstPos` and writes nothing, not even the terminator. NONE for a null `src` or one
// shorter than `srcPos`, for a `dstPos` outside `dst`, for text that does not fit, and with
// TRUNCATE for malformed text. The buffers may overlap.
template <typename CharT>
UTL_API unsigned long copyGeneral(CharT* dst, unsigned long size, unsigned long dstPos,
                                  CharT const* src, unsigned long srcPos, unsigned long count,
                                  int trunc);

// Stores the first `count` bytes of `src`; as copyGeneral() with both positions 0.
template <typename CharT>
UTL_API unsigned long copyStr(CharT* dst, unsigned long size, CharT const* src, unsigned long count,
                              int trunc);
template <typename CharT>
UTL_API unsigned long copyStrBase(CharT* dst, unsigned long size, CharT const* src,
                                  unsigned long count, int trunc);

// Stores the text of a view, which ends where the view does, or at a zero byte in it before. A
// character that the end of the view cuts is left out; an empty view stores an empty text. NONE for
// text that does not fit, and with TRUNCATE for bytes among which no character starts. The buffers
// may overlap.
UTL_API unsigned long copyStr(char* dst, unsigned long size, std::string_view src, int trunc);

// Stores `base`, which may be `dst` itself, followed by at most `count` bytes of `add`. NONE for a
// null `base`, and for a null `add` unless `count` is 0. Measures `base`: to append piece by piece,
// copyGeneral() at the last result less 1 is the cheaper way.
template <typename CharT>
UTL_API unsigned long combineStr(CharT* dst, unsigned long size, CharT const* base,
                                 CharT const* add, unsigned long count, int trunc);

// Stores formatted text. NONE for a null `format` or `dst`, a `size` of 0, and text that does not
// fit; `dst` then holds the terminated beginning of it, which may end inside a character.
template <typename CharT>
unsigned long formatStr(CharT* dst, unsigned long size, CharT const* format, ...);

// The one for char.
template <>
UTL_API UTL_PRINTF_FORMAT(3, 4) unsigned long formatStr<char>(char* dst, unsigned long size,
                                                              char const* format, ...);

// Cuts `s` in place to at most `maxBytes` bytes. NONE for null and for a malformed character
// before the cut.
template <typename CharT>
UTL_API unsigned long truncateStr(CharT* s, unsigned long maxBytes);

// Stores `src` without the bytes from `pos` to `pos` + `count`. NONE for a null `src` or one
// shorter than `pos`.
template <typename CharT>
UTL_API unsigned long eraseStrSpan(CharT* dst, unsigned long size, CharT const* src,
                                   unsigned long pos, unsigned long count, int trunc);

// The same in place. NONE also for text that a WorkingBuffer could not hold.
template <typename CharT>
UTL_API unsigned long eraseStrSpan(CharT* s, unsigned long pos, unsigned long count);

// Stores the characters of `src` in reverse order. With TRUNCATE the last character stored may be
// cut inside by the end of the buffer. NONE for malformed text; t_strrev() also for a `size` of 0.
template <typename CharT>
UTL_API unsigned long t_strrev(CharT* dst, unsigned long size, CharT const* src, int trunc);
template <typename CharT>
UTL_API unsigned long reverseStr(CharT* dst, unsigned long size, CharT const* src, int trunc);

// Replaces every `from` by `to` in place. An empty `to` also drops all that follows the first
// `from`; an empty `from` replaces nothing. NONE for null and for text that a WorkingBuffer, which
// this uses, cannot hold.
template <typename CharT>
UTL_API unsigned long replaceStr(CharT* s, unsigned long size, CharT const* from, CharT const* to,
                                 int trunc);

// Searching and comparing. A match starts on a character; `end` may be null.

// The index of the first `pattern`, NONE without one; the length of `s` for an empty pattern.
template <typename CharT>
UTL_API unsigned long t_strstr(CharT const* s, CharT const* pattern);

// The length of the leading run of characters of `set`. A malformed character ends `s` or `set`.
template <typename CharT>
UTL_API unsigned long t_strspn(CharT const* s, CharT const* set);

// The index of the first character of `set`, or the length of `s`. A malformed character ends
// `set`.
template <typename CharT>
UTL_API unsigned long t_strcspn(CharT const* s, CharT const* set);

// The index of the first `pattern` at or after `offset`; `end` gets the index behind it. Without
// one both are NONE; so is `end` for an empty pattern, which is found at the end of `s`. For null
// and for an `offset` behind the end of `s`, NONE with `end` untouched.
//
//     for (unsigned long end = 0; findStr(text, ", ", end, &end) != NONE;) { ... }
//
// An `offset` costs a look at the text before it. A walk like this one, however long, does not pay
// for that again and again: of an offset above 1024 that `*end` holds already, only the 1024 bytes
// before are looked at. It must not be behind the end of `s` by more than that.
template <typename CharT>
UTL_API unsigned long findStr(CharT const* s, CharT const* pattern, unsigned long offset,
                              unsigned long* end);

// The same for the next run of characters that are not `delimiters`.
template <typename CharT>
UTL_API unsigned long findToken(CharT const* s, CharT const* delimiters, unsigned long offset,
                                unsigned long* end);

// The index of the last byte of the last `pattern` that ends at or before `offset`; `end` gets the
// index of the byte before it, NONE when there is none. Without a match both are NONE. For an
// empty pattern the length of `s`, and `end` is that less 1. NONE with `end` untouched for null,
// for malformed text and for text that a WorkingBuffer could not hold.
template <typename CharT>
UTL_API unsigned long findReverseStr(CharT const* s, CharT const* pattern, unsigned long offset,
                                     unsigned long* end);

// findReverseStr() for the first character of `chars`; empty if that is incomplete. NONE if it is
// a byte order mark or no character starts there.
template <typename CharT>
UTL_API unsigned long findReverseChar(CharT const* s, CharT const* chars, unsigned long offset,
                                      unsigned long* end);

// Less than, equal to or greater than 0 as the first `n` bytes of `a` and `b` compare.
template <typename CharT>
UTL_API int compareStr(CharT const* a, CharT const* b, unsigned long n);

// The same with upper-case letters, ASCII and full-width, taken as lower-case ones. A malformed
// character ends a text. -1, whatever `n` is, when either text is one that a WorkingBuffer could
// not hold.
template <typename CharT>
UTL_API int compareStrNoCase(CharT const* a, CharT const* b, unsigned long n);

// A terminated text in a buffer of its own, or one that is borrowed until the string has to write.
// Operations return 1 for done and 0 for refused; without memory they change nothing. Any text
// given to one may be part of the string itself. Used by one thread at a time.
template <typename CharT>
class UTL_API BasicString {
public:
    static constexpr int FIXED = 0;
    static constexpr int GROWS = 1;

    // Shares the empty text, with capacity 1 and mode FIXED; allocates nothing.
    BasicString();

    // An empty text in a buffer of `size` bytes, at least 1. In mode GROWS copy() and combine()
    // take the room they need; in any other mode the capacity bounds them. Every constructor from
    // here on allocates, and without memory makes what the one above does.
    BasicString(unsigned long size, int growMode);

    // A copy of `s` in a buffer of `size` bytes, or of as many as it needs.
    BasicString(CharT const* s, unsigned long size, int growMode);
    BasicString(BasicString const& other, unsigned long size = 0, int growMode = FIXED);

    virtual ~BasicString();

    // Takes what room the text needs in either mode.
    BasicString& operator=(CharT const* s);
    BasicString& operator=(BasicString const& other);

    // The same result, but room that is missing is taken from `other` instead of the heap.
    BasicString& operator=(BasicString&& other) noexcept;

    // Never null. Good until the string is changed or destroyed.
    CharT const* c_str() const { return mText; }

    // Known, unless the text is borrowed: that one is measured.
    unsigned long length() const;
    unsigned long capacity() const { return mCapacity; }

    // The text for what takes a view; as good as c_str().
    std::basic_string_view<CharT> view() const { return {mText, length()}; }

    // Makes the text the first `count` bytes of `s`; 0 for null. A `count` of 0 changes nothing,
    // unless a string is copied to itself, which cuts it.
    int copy(CharT const* s, unsigned long count, int trunc);
    int copy(BasicString const& other, unsigned long count, int trunc);

    // The text of a view, as copyStr() takes it. An empty one empties the string.
    int copy(std::basic_string_view<CharT> text, int trunc);
    BasicString& operator=(std::basic_string_view<CharT> text);

    // Borrows `s`, which must outlive that, and leaves the capacity as it is. 0 for null.
    int copyShallow(CharT const* s);

    // Appends the first `count` bytes of `s`; 0 for null unless `count` is 0.
    int combine(CharT const* s, unsigned long count, int trunc);
    int combine(std::basic_string_view<CharT> text, int trunc);

    // Appends in either mode. Where room is short, the capacity grows by the length of `s` and 1.
    BasicString& operator+=(CharT const* s);
    BasicString& operator+=(std::basic_string_view<CharT> text);

    // Makes the capacity `capacity`, at least 1, and cuts the text to it. At 1 the string shares
    // the empty text. The memory behind may be more than the capacity tells: text that grows a
    // little at a time is not moved each time.
    int resizeMax(unsigned long capacity);

    // The number of matches of `pattern`, or of all `patterns` one after another, from `offset`
    // on; NONE for null and for an `offset` behind the end. `found`, if given, then holds the
    // pattern once for every match, as far as it has room, and `foundCount`, if given, is how
    // often that is. enumerate() allocates.
    unsigned long enumerate(CharT const* pattern, unsigned long offset, Array<BasicString>* found,
                            unsigned long* foundCount) const;
    unsigned long enumAllOf(Array<BasicString> const& patterns, unsigned long offset,
                            Array<BasicString>* found, unsigned long* foundCount) const;

    // replaceStr() on this text; in mode GROWS with the room that the matches need. 0 for null.
    int replace(CharT const* from, CharT const* to, int trunc);

private:
    struct Buffer {
        std::unique_ptr<CharT[]> text;
        unsigned long size = 0;  // the capacity or more
    };

    int store(CharT const* s, unsigned long count, int trunc, unsigned long capacity);
    int append(CharT const* s, unsigned long count, int trunc, unsigned long capacity);
    int storeView(unsigned long pos, std::basic_string_view<CharT> text, int trunc,
                  unsigned long capacity);
    int cut(unsigned long maxBytes, unsigned long capacity, bool apart);
    template <typename Write>
    int edit(unsigned long capacity, bool apart, Write write);
    Buffer allocate(unsigned long capacity) const;
    Buffer copyText(unsigned long capacity) const;
    void adopt(Buffer buffer, unsigned long length, unsigned long capacity);
    void shareEmpty();
    unsigned long cutLength(unsigned long maxBytes) const;
    unsigned long capacityForText() const;
    unsigned long capacityWith(unsigned long added) const;
    bool holds(CharT const* s) const;

    Buffer mOwned;  // without a text while mText is borrowed
    CharT const* mText;
    unsigned long mLength = 0;  // of an owned text; others may change a borrowed one
    unsigned long mCapacity;
    int mGrowMode;
};

extern template class BasicString<char>;

// A new string of mode FIXED with just the room it needs; empty without memory.
template <typename CharT>
UTL_API BasicString<CharT> operator+(CharT const* left, BasicString<CharT> const& right);

// The scratch memory of the process, behind one recursive lock. It needs no construction and is
// never destroyed: static constructors may use it, and threads while the process exits.
class UTL_API StaticBuffer {
public:
    // The process's one.
    static StaticBuffer& get();

    StaticBuffer(StaticBuffer const&) = delete;
    StaticBuffer& operator=(StaticBuffer const&) = delete;

private:
    template <typename CharT>
    friend class WorkingBuffer;

    constexpr StaticBuffer() = default;

    int borrow();
    void giveBack();
    char* slot(int number) const;
};

// Borrows SIZE bytes of the StaticBuffer for a scope; what they hold at first is not said. Blocks
// while another thread has any: make it late and let it go early. A thread may nest three of them.
template <typename CharT>
class UTL_API WorkingBuffer {
public:
    static constexpr unsigned long SIZE = 10240;

    WorkingBuffer();
    virtual ~WorkingBuffer();
    WorkingBuffer(WorkingBuffer const&) = delete;
    WorkingBuffer& operator=(WorkingBuffer const&) = delete;

    // What was borrowed. A fourth nested buffer gets the third one's.
    operator CharT*() const;

private:
    StaticBuffer& mOwner;
    int mSlot;
};

extern template class WorkingBuffer<char>;

}  // namespace utl

#endif  // UTL_STRING_H
