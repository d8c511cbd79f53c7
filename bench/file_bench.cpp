// Lines and keys of a file beside the plain walk through it, and beside the C library, whose stream
// keeps what it has read ahead from one line to the next. The argument is the bytes of a line, or
// those before the key.

#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "UtlFile.h"

#include "Ratio.h"
#include "support/PlainLines.h"

namespace {

using namespace utl;
using bench::compare;

// A file with `text`, without a name after its first opening; open twice.
struct Opened {
    explicit Opened(std::string const& text)
        : descriptor(mkstemp(path)),
          file(path, File::UTF8),
          stream(std::fopen(path, "r"), std::fclose) {
        bool const isWritten =
            write(descriptor, text.data(), text.size()) == static_cast<ssize_t>(text.size());
        isReady = isWritten && file.open(File::AS_IT_IS, File::READ) == 1 && stream != nullptr;
        unlink(path);
    }
    ~Opened() { close(descriptor); }

    char path[32] = "/tmp/utl-bench-XXXXXX";
    int const descriptor;
    File file;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream;
    bool isReady;
};

std::string linesOf(benchmark::State const& state) {
    std::string const line(static_cast<std::size_t>(state.range(0)) - 1, 'a');
    std::string lines;
    while (lines.size() < 100000) {
        lines += line + "\n";
    }
    return lines;
}

char room[5119];

// Each gives the next line, at the end of the file the first one again.

long readLine(Opened& opened) {
    long const result = opened.file.readLine(room, sizeof room, nullptr);
    if (result != File::END_OF_FILE) {
        return result;
    }
    opened.file.seek(0, File::FROM_START);
    return opened.file.readLine(room, sizeof room, nullptr);
}

long readLinePlainly(Opened& opened) {
    if (opened.file.availableSize() == 0) {
        opened.file.seek(0, File::FROM_START);
    }
    long long const begin = opened.file.position();
    plain::Line const line = plain::nextLine(opened.file, File::UTF8);
    long long const end = opened.file.position();
    opened.file.seek(begin, File::FROM_START);
    long const result = opened.file.readText(room, sizeof room, line.size, 0, nullptr);
    opened.file.seek(end, File::FROM_START);
    return result;
}

long readLineByStream(Opened& opened) {
    if (std::fgets(room, sizeof room, opened.stream.get()) == nullptr) {
        std::rewind(opened.stream.get());
        return std::fgets(room, sizeof room, opened.stream.get()) != nullptr;
    }
    return 1;
}

void readLineBesidePlain(benchmark::State& state) {
    Opened own(linesOf(state));
    Opened peer(linesOf(state));
    if (!own.isReady || readLine(own) != readLinePlainly(peer)) {
        state.SkipWithError("the sides differ");
    }
    compare(
        state, [&] { return readLine(own); }, [&] { return readLinePlainly(peer); });
}

void readLineBesideStream(benchmark::State& state) {
    Opened opened(linesOf(state));
    if (!opened.isReady || readLine(opened) != state.range(0) - 1) {
        state.SkipWithError("no line");
    }
    compare(
        state, [&] { return readLine(opened); }, [&] { return readLineByStream(opened); });
}

constexpr char KEY[] = "the key";

std::string bytesBeforeKey(benchmark::State const& state) {
    std::string bytes(static_cast<std::size_t>(state.range(0)), 'a');
    for (std::size_t i = 0; i < bytes.size(); i += 20) {
        bytes[i] = 't';
    }
    return bytes + KEY;
}

void seekKeyBesidePlain(benchmark::State& state) {
    Opened own(bytesBeforeKey(state));
    Opened peer(bytesBeforeKey(state));
    compare(
        state, [&] { return own.file.seekKey(KEY, 0, NONE, 0); },
        [&] { return plain::seekKey(peer.file, KEY, 0, NONE, 0); });
}

// The whole file read into memory, then searched.
void seekKeyBesideMemmem(benchmark::State& state) {
    std::string const bytes = bytesBeforeKey(state);
    Opened opened(bytes);
    std::vector<char> memory(bytes.size());
    compare(
        state, [&] { return opened.file.seekKey(KEY, 0, NONE, 0); },
        [&] {
            ssize_t const got = pread(opened.descriptor, memory.data(), memory.size(), 0);
            return memmem(memory.data(), static_cast<std::size_t>(got), KEY, sizeof KEY - 1);
        });
}

BENCHMARK(readLineBesidePlain)->Arg(16)->Arg(80)->Arg(1024);
BENCHMARK(readLineBesideStream)->Arg(16)->Arg(80)->Arg(1024);
BENCHMARK(seekKeyBesidePlain)->Arg(64)->Arg(4096);
BENCHMARK(seekKeyBesideMemmem)->Arg(64)->Arg(4096)->Arg(1 << 20);

}  // namespace

BENCHMARK_MAIN();
