// The string primitives on arbitrary bytes, sizes and positions. Whatever they are given, nothing
// is written outside the destination, what is stored is terminated where the result says, and no
// character is split.

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "UtlString.h"

#include "support/FencedBuffer.h"
#include "support/PlainStrings.h"

namespace {

using namespace utl;

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

bool isWellFormed(std::string const& s) {
    return plain::truncate(s, s.size()).has_value();
}

// A short text, without terminators inside.
std::string takeText(FuzzedDataProvider& input) {
    std::string const bytes = input.ConsumeRandomLengthString(48);
    return bytes.c_str();
}

unsigned long takeNumber(FuzzedDataProvider& input) {
    unsigned long const number = input.ConsumeIntegralInRange<unsigned long>(0, 64);
    return number != 64 ? number : ALL;
}

// Has `write` store into `dst`. `whole`: no character may be split.
template <typename Write>
void store(test::FencedBuffer dst, unsigned long size, bool whole, Write write) {
    unsigned long const used = write(dst.data());
    require(dst.fencesIntact());
    if (used == NONE || dst.isUntouched()) {
        return;
    }
    require(used > 0 && used <= size);
    require(std::strlen(dst.data()) == used - 1);
    require(!whole || isWellFormed(dst.data()));
}

// Into a buffer without a terminator.
template <typename Write>
void store(unsigned long size, bool whole, Write write) {
    store(test::FencedBuffer(size), size, whole, write);
}

// Into a buffer that holds `text`.
template <typename Write>
void store(unsigned long size, std::string const& text, bool whole, Write write) {
    store(test::FencedBuffer(size, text), size, whole, write);
}

void fuzzStoring(FuzzedDataProvider& input) {
    std::string const s = takeText(input);
    std::string const t = takeText(input);
    std::string const u = takeText(input);
    unsigned long const size = input.ConsumeIntegralInRange<unsigned long>(0, 63);
    unsigned long const room = s.size() + 1 + size;
    unsigned long const pos = takeNumber(input);
    unsigned long const count = takeNumber(input);
    int const trunc = input.ConsumeIntegralInRange(0, 2);
    bool const whole = isWellFormed(s) && isWellFormed(t) && isWellFormed(u);
    char const* const src = s.c_str();

    store(size, whole, [&](char* dst) { return copyStr(dst, size, src, count, trunc); });
    store(size, whole, [&](char* dst) { return t_strncpy(dst, size, src, count); });
    store(size, whole,
          [&](char* dst) { return combineStr(dst, size, src, t.c_str(), count, trunc); });
    store(room, s, whole,
          [&](char* dst) { return combineStr<char>(dst, room, dst, t.c_str(), count, trunc); });
    store(room, s, whole,
          [&](char* dst) { return replaceStr(dst, room, t.c_str(), u.c_str(), trunc); });
    store(room, s, whole, [&](char* dst) { return truncateStr(dst, pos); });
    store(size, whole && trunc != TRUNCATE,
          [&](char* dst) { return reverseStr(dst, size, src, trunc); });
    // A position inside a character leaves the rest of it behind the span.
    bool const aligned = whole && pos <= s.size() && plain::truncate(s, pos)->size() == pos;
    bool const alignedEnd = aligned && plain::truncate(s.substr(pos), count)->size() ==
                                           std::min<unsigned long>(count, s.size() - pos);
    store(size, alignedEnd,
          [&](char* dst) { return eraseStrSpan(dst, size, src, pos, count, trunc); });
    store(room, s, alignedEnd, [&](char* dst) { return eraseStrSpan(dst, pos, count); });
    store(size, aligned,
          [&](char* dst) { return copyGeneral(dst, size, size / 2, src, pos, count, trunc); });
}

void fuzzSearching(FuzzedDataProvider& input) {
    std::string const s = takeText(input);
    std::string const key = takeText(input);
    unsigned long const offset = takeNumber(input);
    unsigned long end = 0;
    unsigned long plainEnd = 0;

    require(findStr(s.c_str(), key.c_str(), offset, &end) ==
            plain::find(s, key, offset, &plainEnd));
    require(end == plainEnd);
    require(findReverseStr(s.c_str(), key.c_str(), offset, &end) ==
            plain::findReverse(s, key, offset, &plainEnd));
    require(end == plainEnd);
    findReverseChar(s.c_str(), key.c_str(), offset, &end);
    unsigned long const token = findToken(s.c_str(), key.c_str(), offset, &end);
    require(token == NONE || (token < s.size() && token <= end && end <= s.size()));
    require(t_strspn(s.c_str(), key.c_str()) <= s.size());
    require(t_strcspn(s.c_str(), key.c_str()) <= s.size());
    require((compareStrNoCase(s.c_str(), key.c_str(), offset) < 0) ==
            (plain::compareNoCase(s, key, offset) < 0));
}

void fuzzBasicString(FuzzedDataProvider& input) {
    std::string const borrowed = takeText(input);
    BasicString<char> string(input.ConsumeIntegralInRange<unsigned long>(0, 32),
                             input.ConsumeIntegralInRange(0, 1));
    while (input.remaining_bytes() > 0 && string.length() < 4096) {
        std::string const s = takeText(input);
        unsigned long const count = takeNumber(input);
        switch (input.ConsumeIntegralInRange(0, 8)) {
            case 0:
                string.copy(s.c_str(), count, WHOLE);
                break;
            case 1:
                string.combine(s.c_str(), count, TRUNCATE);
                break;
            case 2:
                string.copyShallow(borrowed.c_str());
                break;
            case 3:
                string.resizeMax(count != ALL ? count : 64);
                break;
            case 4:
                string.replace(s.c_str(), borrowed.c_str(), WHOLE);
                break;
            case 5:
                string.copy(string, count, WHOLE);
                break;
            case 6:
                string = s.c_str() + string;
                break;
            case 7:
                string = string.c_str() + string.length() / 2;
                break;
            default:
                string += string.c_str();
                break;
        }
        require(EMPTY_CHAR == '\0' && std::strlen(borrowed.c_str()) == borrowed.size());
        require(string.c_str() == borrowed.c_str() || string.length() < string.capacity());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    FuzzedDataProvider input(data, size);
    switch (input.ConsumeIntegralInRange(0, 2)) {
        case 0:
            fuzzStoring(input);
            break;
        case 1:
            fuzzSearching(input);
            break;
        default:
            fuzzBasicString(input);
            break;
    }
    return 0;
}
