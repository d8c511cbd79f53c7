// Lines of a large file, a key at its end, and copies, beside the C++ library, ICU, iconv and cp.
// All files are in the cache of the system: what is measured is not the disk.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <iconv.h>
#include <spawn.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#ifdef UTL_BENCH_ICUIO
#include <unicode/ustdio.h>
#include <unicode/ustring.h>
#endif

#include "UtlFile.h"

namespace {

using namespace utl;

constexpr unsigned long MEGABYTE = 1 << 20;

// A directory that goes with the program.
class Scratch {
public:
    Scratch() {
        mPath = std::filesystem::temp_directory_path() / "utl-bench-XXXXXX";
        mkdtemp(mPath.data());
    }
    ~Scratch() { std::filesystem::remove_all(mPath); }

    std::string operator()(std::string const& name) const { return mPath + "/" + name; }

    std::string file(std::string const& name, std::string const& content) const {
        std::ofstream((*this)(name), std::ios::binary) << content;
        return (*this)(name);
    }

private:
    std::string mPath;
};

Scratch const& scratch() {
    static Scratch const directory;
    return directory;
}

// Lines of 60 bytes, in the encoding of the file.

constexpr unsigned long LINE_SIZE = 60;
constexpr unsigned long DIFFERENT_LINES = 1000;
constexpr unsigned long LINES_SIZE =
    32 * MEGABYTE / (DIFFERENT_LINES * LINE_SIZE) * (DIFFERENT_LINES * LINE_SIZE);

std::string converted(std::string text, char const* from, char const* to) {
    iconv_t const converter = iconv_open(to, from);
    std::string out(4 * text.size(), '\0');
    char* src = text.data();
    char* dst = out.data();
    std::size_t srcLeft = text.size();
    std::size_t dstLeft = out.size();
    iconv(converter, &src, &srcLeft, &dst, &dstLeft);
    iconv_close(converter);
    out.resize(out.size() - dstLeft);
    return out;
}

// Many different ones, so that no processor knows them by heart: sentences, cut to the size of a
// line.
std::string linesOf(bool isJapanese, char const* encoding) {
    std::string const text =
        isJapanese ? "吾輩は猫である。名前はまだ無い。どこで生れたかとんと見当がつかぬ。"
                     "何でも薄暗いじめじめした所でニャーニャー泣いていた事だけは記憶している。"
                     "吾輩はここで始めて人間というものを見た。1905年、Tokyoにて。"
                   : "I am a cat. As yet I have no name. I've no idea where I was born. All I "
                     "remember is that I was miaowing in a dampish dark place when, for the first "
                     "time, I saw a human being.";
    std::string const units = converted(text, "UTF-8", "UTF-16LE");
    std::string const feed = converted("\n", "UTF-8", encoding);
    std::string some;
    for (unsigned long at = 0; some.size() < DIFFERENT_LINES * LINE_SIZE;) {
        std::string line;
        for (;; at = (at + 2) % units.size()) {
            std::string const next = converted(units.substr(at, 2), "UTF-16LE", encoding);
            if (line.size() + next.size() + feed.size() > LINE_SIZE) {
                break;
            }
            line += next;
        }
        while (line.size() + feed.size() < LINE_SIZE) {
            line += converted("-", "UTF-8", encoding);
        }
        some += line + feed;
    }
    std::string lines;
    while (lines.size() < LINES_SIZE) {
        lines += some;
    }
    return lines;
}

// What the lines of a file come to in UTF-8; the same for all who read it.
struct Sum {
    unsigned long lines = 0;
    unsigned long bytes = 0;

    void add(unsigned long size) {
        ++lines;
        bytes += size;
    }
    bool operator!=(Sum const& other) const { return lines != other.lines || bytes != other.bytes; }
};

Sum readByFile(char const* path, int textType) {
    Sum sum;
    File file(path, textType);
    file.open(File::AS_IT_IS, File::READ);
    char line[256];
    unsigned long size = 0;
    while (file.readLine(line, sizeof line, &size) >= 0) {
        sum.add(size - 1);
    }
    return sum;
}

Sum readByGetline(char const* path, char const*) {
    Sum sum;
    std::ifstream file(path, std::ios::binary);
    std::string line;
    while (std::getline(file, line)) {
        sum.add(line.size());
    }
    return sum;
}

Sum readByGetlineAndIconv(char const* path, char const* encoding) {
    Sum sum;
    std::ifstream file(path, std::ios::binary);
    iconv_t const converter = iconv_open("UTF-8", encoding);
    std::string line;
    char text[256];
    while (std::getline(file, line)) {
        char* src = line.data();
        char* dst = text;
        std::size_t srcLeft = line.size();
        std::size_t dstLeft = sizeof text;
        iconv(converter, &src, &srcLeft, &dst, &dstLeft);
        sum.add(sizeof text - dstLeft);
    }
    iconv_close(converter);
    return sum;
}

#ifdef UTL_BENCH_ICUIO
Sum readByIcu(char const* path, char const* encoding) {
    Sum sum;
    UFILE* const file = u_fopen(path, "r", nullptr, encoding);
    UChar line[256];
    char text[256];
    while (u_fgets(line, 256, file) != nullptr) {
        int32_t size = 0;
        UErrorCode error = U_ZERO_ERROR;
        u_strToUTF8(text, sizeof text, &size, line, -1, &error);
        sum.add(static_cast<unsigned long>(size) - 1);
    }
    u_fclose(file);
    return sum;
}
#endif

using Reader = Sum (*)(char const* path, char const* encoding);

struct Encoding {
    char const* row;
    bool isJapanese;
    int textType;
    char const* name;     // iconv's
    char const* icuName;  // ICU's
    Reader peer;
    char const* peerName;
};

constexpr Encoding ENCODINGS[] = {
    {"readLine, UTF-8, ASCII", false, File::UTF8, "UTF-8", "UTF-8", readByGetline, "std::getline"},
    {"readLine, UTF-8, Japanese", true, File::UTF8, "UTF-8", "UTF-8", readByGetline,
     "std::getline"},
    {"readLine, UTF-16, Japanese", true, File::UTF16_LOW_FIRST, "UTF-16LE", "UTF-16LE", nullptr,
     nullptr},
    {"readLine, UTF-16 high byte first, Japanese", true, File::UTF16_HIGH_FIRST, "UTF-16BE",
     "UTF-16BE", nullptr, nullptr},
    {"readLine, Shift_JIS, Japanese", true, File::SHIFT_JIS, "CP932", "ibm-943",
     readByGetlineAndIconv, "getline and iconv"},
};

void reportBytes(benchmark::State& state, unsigned long bytes) {
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
}

template <typename Read>
void addReader(std::string const& row, char const* contender, Read read, Sum const& sum) {
    benchmark::RegisterBenchmark((row + "/" + contender).c_str(), [=](benchmark::State& state) {
        for (auto _ : state) {
            if (read() != sum) {
                state.SkipWithError("other lines");
            }
        }
        reportBytes(state, LINES_SIZE);
    })->Unit(benchmark::kMillisecond);
}

void addReaders(Encoding const& encoding) {
    std::string const row = std::string("files/") + encoding.row;
    std::string const lines = linesOf(encoding.isJapanese, encoding.name);
    std::string const path = scratch().file(encoding.row, lines);
    Sum const sum = readByFile(path.c_str(), encoding.textType);
    addReader(
        row, "utl", [=] { return readByFile(path.c_str(), encoding.textType); }, sum);
    if (encoding.peer != nullptr) {
        addReader(
            row, encoding.peerName, [=] { return encoding.peer(path.c_str(), encoding.name); },
            sum);
    }
#ifdef UTL_BENCH_ICUIO
    addReader(
        row, "ICU", [=] { return readByIcu(path.c_str(), encoding.icuName); }, sum);
#endif
}

// A key at the end of 32 MB of text in which its first byte occurs now and then.

constexpr char KEY[] = "<the key>";
constexpr unsigned long KEY_BLOCK = 65536;

std::string textBeforeKey() {
    std::string text = linesOf(false, "UTF-8");
    for (unsigned long i = 0; i < text.size(); i += 1000) {
        text[i] = KEY[0];
    }
    return text + KEY;
}

unsigned long long findByFile(char const* path) {
    File file(path, File::UTF8);
    file.open(File::AS_IT_IS, File::READ);
    return file.seekKey(KEY, 0, NONE, 0);
}

unsigned long long findInMap(char const* path) {
    int const descriptor = ::open(path, O_RDONLY);
    unsigned long const size = std::filesystem::file_size(path);
    void* const map = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, descriptor, 0);
    void const* const found = memmem(map, size, KEY, sizeof KEY - 1);
    unsigned long long const at = static_cast<unsigned long long>(static_cast<char const*>(found) -
                                                                  static_cast<char const*>(map));
    munmap(map, size);
    ::close(descriptor);
    return at;
}

// Keeps the end of a block in front of the next one.
unsigned long long findByBlocks(char const* path) {
    constexpr unsigned long KEPT = sizeof KEY - 2;
    static char block[KEPT + KEY_BLOCK];
    int const descriptor = ::open(path, O_RDONLY);
    unsigned long long at = NONE;
    unsigned long kept = 0;
    for (unsigned long long begin = 0;;) {
        ssize_t const got = ::read(descriptor, block + kept, KEY_BLOCK);
        if (got <= 0) {
            break;
        }
        unsigned long const size = kept + static_cast<unsigned long>(got);
        if (void const* const found = memmem(block, size, KEY, sizeof KEY - 1)) {
            at = begin + static_cast<unsigned long>(static_cast<char const*>(found) - block);
            break;
        }
        kept = std::min(size, KEPT);
        memmove(block, block + size - kept, kept);
        begin += size - kept;
    }
    ::close(descriptor);
    return at;
}

void addSearches() {
    std::string const text = textBeforeKey();
    std::string const path = scratch().file("key", text);
    unsigned long long const place = text.size() - (sizeof KEY - 1);
    auto const add = [&](char const* contender, unsigned long long (*find)(char const*)) {
        std::string const name = std::string("files/seekKey, 32 MB/") + contender;
        benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
            for (auto _ : state) {
                if (find(path.c_str()) != place) {
                    state.SkipWithError("another place");
                }
            }
            reportBytes(state, place);
        })->Unit(benchmark::kMillisecond);
    };
    add("utl", findByFile);
    add("memmem in a mapped file", findInMap);
    add("limit", findByBlocks);
}

// Copies of a file and of a tree. What is there from the last time goes before each, unmeasured.

bool copyByFile(std::string const& from, std::string const& to) {
    return File::copy(from.c_str(), to.c_str(), 0);
}

bool copyByCp(std::string const& from, std::string const& to) {
    std::string words[] = {"cp", "-r", from, to};
    char* const arguments[] = {words[0].data(), words[1].data(), words[2].data(), words[3].data(),
                               nullptr};
    pid_t child = 0;
    int status = -1;
    return posix_spawnp(&child, "cp", nullptr, nullptr, arguments, environ) == 0 &&
           waitpid(child, &status, 0) == child && status == 0;
}

void addCopies(char const* row, std::string const& from, unsigned long bytes) {
    auto const add = [&](char const* contender, auto copy) {
        std::string const name = std::string("files/") + row + "/" + contender;
        benchmark::RegisterBenchmark(
            name.c_str(),
            [=](benchmark::State& state) {
                using Clock = std::chrono::steady_clock;
                std::string const to = scratch()("copy");
                for (auto _ : state) {
                    std::filesystem::remove_all(to);
                    Clock::time_point const begin = Clock::now();
                    if (!copy(from, to)) {
                        state.SkipWithError("not copied");
                    }
                    state.SetIterationTime(
                        std::chrono::duration<double>(Clock::now() - begin).count());
                }
                reportBytes(state, bytes);
                std::filesystem::remove_all(to);
            })
            ->Unit(benchmark::kMillisecond)
            ->UseManualTime();
    };
    add("utl", copyByFile);
    add("cp", copyByCp);
}

std::string makeTree() {
    constexpr int DIRECTORIES = 20;
    constexpr int FILES = 100;
    for (int i = 0; i < DIRECTORIES; ++i) {
        std::string const directory = "tree/" + std::to_string(i);
        std::filesystem::create_directories(scratch()(directory));
        for (int j = 0; j < FILES; ++j) {
            std::string const content(static_cast<unsigned long>(100 + 37 * j), 'a');
            scratch().file(directory + "/" + std::to_string(j), content);
        }
    }
    return scratch()("tree");
}

}  // namespace

int main(int argc, char** argv) {
    for (Encoding const& encoding : ENCODINGS) {
        addReaders(encoding);
    }
    addSearches();
    constexpr unsigned long LARGE = 64 * MEGABYTE;
    addCopies("copy, 64 MB", scratch().file("large", std::string(LARGE, 'x')), LARGE);
    addCopies("copy, 2000 small files", makeTree(), 0);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return EXIT_SUCCESS;
}
