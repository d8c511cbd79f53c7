// The directory for what comes of the files, and in its archive the files themselves. What is there
// is never overwritten: a name that was there before gets a number.

#ifndef TEXTINTAKE_SHELF_H
#define TEXTINTAKE_SHELF_H

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "Output.h"
#include "UtlFile.h"

class Shelf {
public:
    explicit Shelf(std::string const& directory)
        : mDirectory(directory), mLock((directory + "/.lock").c_str(), utl::File::UTF8) {}

    // Makes what is missing, and keeps other processes out. Empty, or why that cannot be done.
    std::string open() {
        char const* const directory = mDirectory.c_str();
        errno = 0;
        if (mDirectory.size() > LONGEST_DIRECTORY) {
            return reasonOf(ENAMETOOLONG);
        }
        if (utl::File::exists(directory) && !utl::File::isDirectory(directory)) {
            return reasonOf(ENOTDIR);
        }
        if (utl::File::exists(directory) && access(directory, W_OK | X_OK) != 0) {
            return reasonOf(errno);
        }
        if (!utl::File::makeDirectories(archivePath("").c_str())) {
            return reasonOf(errno == 0 || errno == EEXIST ? ENOTDIR : errno);
        }
        if (!mLock.open(utl::File::AS_IT_IS, utl::File::WRITE)) {
            return errno == EWOULDBLOCK ? "another textintake is at work there" : reasonOf(errno);
        }
        return "";
    }

    // Whether what is put here would come into that inbox.
    bool feeds(std::string const& inbox) const {
        return isSame(mDirectory, inbox) || isSame(archivePath(""), inbox);
    }

    std::string const& directory() const { return mDirectory; }

    // In bytes. All that is put before and behind it makes no path too long.
    std::size_t longestName() const { return LONGEST_DIRECTORY + 30 - mDirectory.size(); }

    // The name itself, or with a number before its extension. Many that have the same do not make
    // it slow.
    std::string freeName(std::string const& name) const {
        unsigned long taken = 0;
        unsigned long free = 1;
        while (isTaken(numbered(name, free))) {
            taken = free;
            free *= 2;
        }
        while (free - taken > 1) {
            unsigned long const middle = taken + (free - taken) / 2;
            (isTaken(numbered(name, middle)) ? taken : free) = middle;
        }
        return numbered(name, free);
    }

    // The name of an earlier text, the same but for an extension that only tells the encoding, that
    // is not the same text; empty when there is none.
    std::string findDiffering(std::string const& name, std::uint64_t hash) const {
        static char const* const ENCODINGS[] = {".txt", ".utf8", ".sjis", ".utf16be", ".utf16le"};
        std::vector<std::string> names = {name};
        for (char const* const extension : ENCODINGS) {
            if (extensionOf(name) == extension) {
                for (char const* const other : ENCODINGS) {
                    names.push_back(stemOf(name) + other);
                }
            }
        }
        for (std::string const& kin : names) {
            std::uint64_t earlier;
            if (Output::readHash(path(kin), &earlier) && earlier != hash) {
                return kin;
            }
        }
        return "";
    }

    // Where the outputs of a name are, but for their extensions.
    std::string path(std::string const& name) const { return mDirectory + "/" + name; }

    // Moves a file into the archive; to another file system by way of a copy. False leaves it where
    // it is, with errno for the reason.
    bool archive(std::string const& source, std::string const& name) const {
        std::string const target = archivePath("/" + name);
        std::string const draft = target + ".part";
        errno = 0;
        if (statusOf(source).st_dev == statusOf(mDirectory).st_dev) {
            return utl::File::move(source.c_str(), target.c_str()) != 0;
        }
        return copy(source, draft) && utl::File::move(draft.c_str(), target.c_str()) &&
               (utl::File::erase(source.c_str(), 1) || !utl::File::erase(target.c_str(), 1));
    }

private:
    static constexpr std::size_t LONGEST_DIRECTORY = 200;

    static struct stat statusOf(std::string const& path) {
        struct stat status = {};
        stat(path.c_str(), &status);
        return status;
    }

    static bool isSame(std::string const& a, std::string const& b) {
        return statusOf(a).st_dev == statusOf(b).st_dev && statusOf(a).st_ino == statusOf(b).st_ino;
    }

    std::string archivePath(std::string const& name) const {
        return mDirectory + "/archive" + name;
    }

    bool isTaken(std::string const& name) const {
        return Output::isTaken(path(name)) || utl::File::exists(archivePath("/" + name).c_str());
    }

    // What makes a copy of its own accord does not tell an unreadable source from a short one, and
    // leaves it to the system when the copy reaches the disk.
    static bool copy(std::string const& source, std::string const& target) {
        utl::File::erase(target.c_str(), 1);
        bool const isWhole = utl::File::copy(source.c_str(), target.c_str(), 0) &&
                             utl::File::size(source.c_str()) == utl::File::size(target.c_str());
        int const error = errno;
        if (!isWhole) {
            utl::File::erase(target.c_str(), 1);
            errno = error;
        } else if (!utl::File::isReadOnly(target.c_str())) {
            utl::File(target.c_str(), utl::File::UTF8).open(utl::File::APPEND, utl::File::WRITE);
        }
        return isWhole;
    }

    static std::string stemOf(std::string const& name) {
        char stem[MAX_PATH_SIZE];
        return utl::File::extractFileName(stem, sizeof stem, name.c_str(), 1) ? stem : name;
    }

    static std::string extensionOf(std::string const& name) {
        return name.substr(stemOf(name).size());
    }

    static std::string numbered(std::string const& name, unsigned long number) {
        return number == 1 ? name : stemOf(name) + "." + std::to_string(number) + extensionOf(name);
    }

    std::string const mDirectory;
    utl::File mLock;
};

#endif  // TEXTINTAKE_SHELF_H
