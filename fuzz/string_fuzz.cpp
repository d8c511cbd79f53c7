// The string primitives on arbitrary bytes, sizes and positions: they do what their plain forms do,
// and write nothing outside the destination.

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "UtlString.h"

#include "support/StringPairs.h"

namespace {

using namespace utl;

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
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

test::StringInput takeInput(FuzzedDataProvider& input) {
    test::StringInput in = {};
    in.s = takeText(input);
    in.held = "-" + takeText(input);
    in.key = takeText(input);
    in.other = takeText(input);
    in.size = input.ConsumeIntegralInRange<unsigned long>(0, 63);
    in.pos = takeNumber(input);
    in.dstPos = input.ConsumeIntegralInRange<unsigned long>(0, in.held.size());
    in.count = takeNumber(input);
    in.trunc = input.ConsumeIntegralInRange(0, 2);
    return in;
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
            require(takeInput(input).storingDifference() == nullptr);
            break;
        case 1:
            require(takeInput(input).searchingDifference() == nullptr);
            break;
        default:
            fuzzBasicString(input);
            break;
    }
    return 0;
}
