// Lines, spans and keys in arbitrary bytes. Every walk ends where its plain form ends and comes to
// the end of the file; a line is the span that its size says, and its size is enough room for it.

#include <fuzzer/FuzzedDataProvider.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <vector>

#include "UtlFile.h"

#include "support/PlainLines.h"

namespace {

using namespace utl;

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

// One file for all runs, as closing it waits for the disk.
class Scratch {
public:
    Scratch() : mDescriptor(mkstemp(mPath)), file(mPath, 0), plainFile(mPath, 0) {
        require(mDescriptor != -1);
        require(file.open(File::AS_IT_IS, File::READ) == 1);
        require(plainFile.open(File::AS_IT_IS, File::READ) == 1);
        unlink(mPath);
    }

    void fill(std::string const& bytes, int textType) {
        require(ftruncate(mDescriptor, 0) == 0);
        require(pwrite(mDescriptor, bytes.data(), bytes.size(), 0) ==
                static_cast<ssize_t>(bytes.size()));
        goTo(0);
        file.setTextType(textType);
    }

    void goTo(long long position) {
        require(file.seek(position, File::FROM_START) == position);
        require(plainFile.seek(position, File::FROM_START) == position);
    }

    bool isTogether() const { return file.position() == plainFile.position(); }

private:
    char mPath[32] = "/tmp/utl-fuzz-XXXXXX";
    int const mDescriptor;

public:
    File file;
    File plainFile;
};

// A span of `count` bytes at the position: measured, refused without room, and read.
std::string readSpan(File& file, unsigned long count, long* result) {
    unsigned long needed = 0;
    *result = file.readText(nullptr, 0, count, 0, &needed);
    if (*result < 0) {
        return {};
    }
    std::vector<char> text(needed);
    unsigned long size = 0;
    require(needed == 1 || file.readText(text.data(), needed - 1, count, 0, &size) == -1);
    long const read = file.readText(text.data(), needed, count, 0, &size);
    require(read == -1 || (read == *result && size == needed && text.back() == '\0'));
    *result = read;
    return read == -1 ? "" : text.data();
}

// The line at the position, beside the span of its bytes.
void fuzzLine(Scratch& scratch, int textType) {
    long long const begin = scratch.file.position();
    unsigned long size = 0;
    unsigned long endSize = 0;
    plain::Line const line = plain::nextLine(scratch.plainFile, textType);
    require(scratch.file.findNextLineSize(0, &size, &endSize) == 1);
    require(size == line.size && endSize == line.endSize && scratch.isTogether());
    long long const end = scratch.file.position();
    require(end > begin);

    scratch.goTo(begin);
    long spanResult = 0;
    std::string const span = readSpan(scratch.plainFile, size, &spanResult);
    BasicString<char> text;
    long const result = scratch.file.readLine(&text, nullptr);
    bool const hasText = size > (textType < File::UTF16_HIGH_FIRST ? 0u : 1u);
    require(result == (hasText && spanResult < 0 ? -1 : static_cast<long>(size)));
    require(scratch.file.position() == (result == -1 ? begin : end));
    require(result == -1 || text.c_str() == span);
    scratch.goTo(end);
}

void fuzzKey(Scratch& scratch, FuzzedDataProvider& input, std::string const& key) {
    unsigned long long const from = input.ConsumeBool()
                                        ? File::CURRENT
                                        : input.ConsumeIntegralInRange<unsigned long long>(0, 9000);
    unsigned long long const range = input.ConsumeIntegralInRange<unsigned long long>(0, 9000);
    int const mode = input.ConsumeIntegralInRange(0, 2);
    scratch.goTo(input.ConsumeIntegralInRange(0, 99));
    unsigned long long const found = scratch.file.seekKey(
        reinterpret_cast<unsigned char const*>(key.data()), key.size(), from, range, mode);
    require(found == plain::seekKey(scratch.plainFile, key, from, range, mode));
    require(scratch.isTogether());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    static Scratch scratch;
    FuzzedDataProvider input(data, size);
    int const textType = input.ConsumeIntegralInRange(0, 3);
    // What pushes the rest over the blocks that are read ahead.
    bool const isLong = input.ConsumeIntegralInRange(0, 15) == 0;
    std::string bytes(isLong ? input.ConsumeIntegralInRange(5100UL, 5140UL) : 0, '\r');
    std::string const key = input.ConsumeRandomLengthString(8);
    bytes += input.ConsumeRandomLengthString(4096);
    scratch.fill(bytes, textType);
    scratch.plainFile.setTextType(textType);

    while (scratch.file.availableSize() > 0) {
        fuzzLine(scratch, textType);
    }
    require(scratch.file.readLine(nullptr, 0, nullptr) == File::END_OF_FILE);
    if (!key.empty()) {
        fuzzKey(scratch, input, key);
    }
    return 0;
}
