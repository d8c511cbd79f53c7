// What only a race shows: others change what the library looks at, as fast as they can, from
// another thread or process. Run it in an empty directory, best one in memory, as root or not:
//
//     file_race 120    each of the races for 120 seconds; ends with 1 at the first finding

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>
#include <thread>

#include "UtlFile.h"

namespace {

using utl::File;
using Clock = std::chrono::steady_clock;

std::chrono::seconds duration;

void require(bool holds, char const* what) {
    if (!holds) {
        std::fprintf(stderr, "found: %s\n", what);
        _exit(1);
    }
}

// Again and again for as long as a race takes.
template <typename Round>
void race(char const* name, Round round) {
    unsigned long rounds = 0;
    for (auto const end = Clock::now() + duration; Clock::now() < end; ++rounds) {
        round();
    }
    std::printf("%s: %lu rounds\n", name, rounds);
    std::fflush(stdout);
}

// Another process that does something all the time.
class Neighbour {
public:
    template <typename Work>
    explicit Neighbour(Work work) : mProcess(fork()) {
        if (mProcess == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
        }
        while (mProcess == 0) {
            work();
        }
    }
    ~Neighbour() {
        kill(mProcess, SIGKILL);
        waitpid(mProcess, nullptr, 0);
    }
    Neighbour(Neighbour const&) = delete;
    Neighbour& operator=(Neighbour const&) = delete;

private:
    pid_t const mProcess;
};

void makeFile(std::string const& path, mode_t mode) {
    close(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL, mode));
}

unsigned modeOf(char const* path) {
    struct stat status;
    return lstat(path, &status) == 0 ? status.st_mode & 07777 : 0;
}

// Puts a link to `target` in the place of `name` for a moment.
void swapForLink(char const* name, char const* target) {
    if (rename(name, "aside") == 0) {
        if (symlink(target, name) == 0) {
            sched_yield();
            unlink(name);
        }
        rename("aside", name);
    }
}

void keepTreeOperationsInTheirTree() {
    constexpr int FILES = 30;
    mkdir("out", 0700);
    for (int i = 0; i < FILES; ++i) {
        makeFile("out/file" + std::to_string(i), 0440);
    }
    Neighbour const neighbour([] { swapForLink("in/sub", "../out"); });
    race("trees", [] {
        mkdir("in", 0777);
        mkdir("in/sub", 0777);
        for (int i = 0; i < FILES; ++i) {
            makeFile("in/sub/file" + std::to_string(i), 0400);
        }
        File::size("in");
        File::liftReadOnly("in", 1);
        File::copy("in", "copy", 1);
        File::erase("copy", 1);
        File::erase("in", 1);
        std::error_code ignored;
        std::filesystem::remove_all("aside", ignored);
        for (int i = 0; i < FILES; ++i) {
            std::string const path = "out/file" + std::to_string(i);
            require(modeOf(path.c_str()) == 0440, "a tree operation left its tree");
        }
    });
}

void openOnlyWhatHasAName() {
    std::atomic<bool> isOver{false};
    std::thread eraser([&] {
        while (!isOver) {
            File::erase("file", 0);
            File::move("file", "other");
            File::erase("other", 0);
        }
    });
    unsigned long opened = 0;
    race("openings", [&] {
        File file("file", File::UTF8);
        if (file.open(File::APPEND, File::WRITE) && file.write("x", 1) == 1) {
            ++opened;
            require(file.size() == File::size("file"), "a file without a name was opened");
        }
    });
    require(opened != 0, "nothing was ever opened");
    isOver = true;
    eraser.join();
}

void moveOverNothing() {
    race("moves", [] {
        std::atomic<bool> isTime{false};
        makeFile("source", 0600);
        bool isCreated = false;
        std::thread creator([&] {
            while (!isTime) {
            }
            int const file = open("target", O_WRONLY | O_CREAT | O_EXCL, 0600);
            isCreated = file != -1;
            close(file);
        });
        isTime = true;
        bool const isMoved = File::move("source", "target") == 1;
        creator.join();
        require(isMoved != isCreated, "a move overwrote what had appeared");
        unlink("source");
        unlink("target");
    });
}

// Several processes in directories of one owner, who may work in one and not in the other.
void putModesBack() {
    mkdir("open", 0750);
    mkdir("closed", 0550);
    auto const work = [](std::string const& name) {
        File(("open/" + name).c_str(), File::UTF8).open(File::AS_IT_IS, File::WRITE);
        File::makeDirectories(("closed/" + name).c_str());
        require(File::erase(("closed/" + name).c_str(), 0) == 1, "nothing was made or erased");
        require(modeOf("open") == 0750, "a directory was opened up needlessly");
    };
    pid_t const other = fork();
    race("modes", [&] { work(other == 0 ? "a" : "b"); });
    if (other == 0) {
        _exit(0);
    }
    int status = -1;
    waitpid(other, &status, 0);
    require(status == 0 && modeOf("closed") == 0550, "a mode did not come back");
}

void openUpNothingBehindALink() {
    mkdir("victim", 0500);
    mkdir("d", 0500);
    Neighbour const neighbour([] { swapForLink("d", "victim"); });
    Neighbour const watcher([] {
        if (modeOf("victim") != 0500) {
            mkdir("seen", 0700);
        }
    });
    race("links", [] {
        File("d/file", File::UTF8).open(File::AS_IT_IS, File::WRITE);
        File::erase("d/file", 0);
        require(!File::exists("seen"), "a directory was opened up behind a link");
    });
}

}  // namespace

int main(int argc, char** argv) {
    duration = std::chrono::seconds(argc > 1 ? atol(argv[1]) : 5);
    keepTreeOperationsInTheirTree();
    openOnlyWhatHasAName();
    moveOverNothing();
    // As somebody whom permissions stop.
    bool const isNobody =
        getuid() != 0 || (chmod(".", 0777) == 0 && setgid(65534) == 0 && setuid(65534) == 0);
    require(isNobody, "cannot become nobody");
    putModesBack();
    openUpNothingBehindALink();
    return 0;
}
