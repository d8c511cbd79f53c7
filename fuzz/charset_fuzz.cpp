// The conversions on arbitrary bytes and units.

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "UtlCharSet.h"

#include "support/PlainCharSets.h"

namespace {

using namespace utl;
using plain::Units;

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

// The units before the first 0 as bytes, and back.
void fuzzBytes(Units const& text, int bigEndian) {
    Units src = text;
    src.push_back(0);
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
        require(kind == 0 ? plain::convertsSjis(text.c_str()) : plain::convertsUtf8(text.c_str()));
        return 0;
    }
    Units text;
    while (input.remaining_bytes() >= 2) {
        text.push_back(input.ConsumeIntegral<unsigned short>());
    }
    require(plain::convertsUtf16(text));
    fuzzBytes(text, kind - 2);
    return 0;
}
