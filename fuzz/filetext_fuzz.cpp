// Lines, spans and keys in arbitrary bytes. Every walk ends where its plain form ends and comes to
// the end of the file; a line is the span that its size says, and its size is enough room for it.

#include <fuzzer/FuzzedDataProvider.h>
#include <stdlib.h>
#include <sys/mman.h>
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

// A file in memory, one for all runs.
class Scratch {
public:
    Scratch()
        : mDescriptor(memfd_create("fuzz", MFD_CLOEXEC)),
          file(("/proc/self/fd/" + std::to_string(mDescriptor)).c_str(), 0),
          plainFile("") {
        require(file.open(File::AS_IT_IS, File::READ) == 1);
    }

    void fill(std::string const& content, int textType) {
        bytes = content;
        plainFile = plain::Memory(content);
        require(ftruncate(mDescriptor, 0) == 0);
        require(pwrite(mDescriptor, bytes.data(), bytes.size(), 0) ==
                static_cast<ssize_t>(bytes.size()));
        goTo(0);
        file.setTextType(textType);
    }

    void goTo(long long position) {
        require(file.seek(position, File::FROM_START) == position);
        plainFile.seek(position, File::FROM_START);
    }

    bool isTogether() const { return file.position() == plainFile.position(); }

private:
    int const mDescriptor;

public:
    std::string bytes;
    File file;
    plain::Memory plainFile;
};

// The text of bytes in UTF-8: the characters among them, up to a zero byte, without a mark in
// front.
std::string charactersOf(std::string const& bytes) {
    plain::Memory memory(bytes);
    std::string text;
    std::string c = plain::nextCharacter(memory, File::UTF8);
    for (c = c == "\uFEFF" ? plain::nextCharacter(memory, File::UTF8) : c;
         !c.empty() && c[0] != '\0'; c = plain::nextCharacter(memory, File::UTF8)) {
        text += strCharBytesBase(c.c_str()) == c.size() ? c : "";
    }
    return text;
}

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
    std::string const span = readSpan(scratch.file, size, &spanResult);
    scratch.goTo(begin);
    BasicString<char> text;
    long const result = scratch.file.readLine(&text, nullptr);
    bool const hasText = size > (textType < File::UTF16_HIGH_FIRST ? 0u : 1u);
    require(result == (hasText && spanResult < 0 ? -1 : static_cast<long>(size)));
    require(scratch.file.position() == (result == -1 ? begin : end));
    require(result == -1 || text.c_str() == span);
    require(result == -1 || textType != File::UTF8 ||
            span == charactersOf(scratch.bytes.substr(static_cast<unsigned long>(begin), size)));
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

    while (scratch.file.availableSize() > 0) {
        fuzzLine(scratch, textType);
    }
    require(scratch.file.readLine(nullptr, 0, nullptr) == File::END_OF_FILE);
    if (!key.empty()) {
        fuzzKey(scratch, input, key);
    }
    return 0;
}
