// The conversions on arbitrary bytes and units. A size that was asked for is enough and one less is
// not, nothing is written outside the destination or read behind a terminator, and a text is what
// its characters are one by one.

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "UtlCharSet.h"
#include "UtlString.h"

namespace {

using namespace utl;
using Units = std::vector<unsigned short>;

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

// A copy on the heap, where a look behind the terminator is noticed.
template <typename Unit, typename Text>
std::vector<Unit> terminated(Text const& text) {
    std::vector<Unit> copy(text.begin(), text.end());
    copy.push_back(0);
    return copy;
}

// What a Str function stores with just the room it needs, without the terminator; empty for NONE.
template <typename Unit, typename Source>
std::vector<Unit> convert(unsigned long (*function)(Unit*, unsigned long, Source const*),
                          std::vector<Source> const& src) {
    unsigned long const needed = function(nullptr, 0, src.data());
    if (needed == NONE) {
        std::vector<Unit> dst(4 * src.size());
        require(function(dst.data(), dst.size(), src.data()) == NONE);
        return {};
    }
    std::vector<Unit> dst(needed);
    require(needed == 1 || function(dst.data(), needed - 1, src.data()) == NONE);
    require(function(dst.data(), needed, src.data()) == needed && dst.back() == 0);
    dst.pop_back();
    return dst;
}

void fuzzSjis(std::string const& bytes) {
    std::vector<char> const src = terminated<char>(bytes);
    std::vector<char> utf8;
    Units utf16;
    for (char const* s = src.data(); *s != '\0';) {
        char form[3];
        unsigned long taken = 0;
        unsigned long const length = convertCharFromSjisToUtf8(form, 3, s, &taken);
        utf8.insert(utf8.end(), form, form + length);
        utf8.back() = utf8.back() != '\0' ? utf8.back() : '*';

        unsigned short unit = 0;
        unsigned long alsoTaken = 0;
        require(convertCharFromSjisToUtf16(&unit, s, &alsoTaken) != NONE && alsoTaken == taken);
        utf16.push_back(unit != 0 ? unit : static_cast<unsigned short>(0x203B));
        s += taken;
    }
    require(convert(convertStrFromSjisToUtf8, src) == utf8);
    require(convert(convertStrFromSjisToUtf16, src) == utf16);
}

void fuzzUtf8(std::string const& bytes) {
    std::vector<char> const src = terminated<char>(bytes);
    Units utf16;
    char const* s = src.data();
    unsigned long length = strCharBytesBase(s);
    while (length != 0 && length != NONE) {
        unsigned short unit = 0x203B;
        unsigned long taken = 4;
        require((convertCharFromUtf8ToUtf16(&unit, s, &taken) == 1) == (length < 4));
        require(taken == length);
        utf16.push_back(unit);
        s += length;
        length = strCharBytesBase(s);
    }
    require(convert(convertStrFromUtf8ToUtf16, src) == (length == 0 ? utf16 : Units()));
}

void fuzzUtf16(Units const& text, int bigEndian) {
    Units const src = terminated<unsigned short>(text);
    std::vector<char> const utf8 = convert(convertStrFromUtf16ToUtf8, src);
    // All that was written is read back, but for the marks that are left out.
    require(convert(convertStrFromUtf8ToUtf16, terminated<char>(utf8)).size() <= text.size());

    unsigned long const needed =
        convertStrFromDcharToUint8(nullptr, 0, src.data(), NONE, bigEndian);
    std::vector<unsigned char> bytes(needed + 1);  // not null for no units either
    Units back(needed / 2);
    require(convertStrFromDcharToUint8(bytes.data(), needed, src.data(), NONE, bigEndian) ==
            needed);
    require(convertBinFromUint8ToDchar(back.data(), back.size(), bytes.data(), needed, bigEndian) ==
            back.size());
    require(Units(src.begin(), src.begin() + static_cast<long>(back.size())) == back);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    FuzzedDataProvider input(data, size);
    int const kind = input.ConsumeIntegralInRange(0, 3);
    if (kind < 2) {
        std::string const text = input.ConsumeRemainingBytesAsString();
        kind == 0 ? fuzzSjis(text.c_str()) : fuzzUtf8(text.c_str());
        return 0;
    }
    Units text;
    while (input.remaining_bytes() >= 2) {
        text.push_back(input.ConsumeIntegral<unsigned short>());
    }
    fuzzUtf16(text, kind - 2);
    return 0;
}
