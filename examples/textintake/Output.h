// What comes of one file: its normalised text in UTF-8, and an index of it.

#ifndef TEXTINTAKE_OUTPUT_H
#define TEXTINTAKE_OUTPUT_H

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>

#include "Report.h"
#include "UtlBitStream.h"
#include "UtlFile.h"

// A file that is written beside the place where it belongs, and moved there when it is whole. One
// that never is leaves nothing behind.
class Draft {
public:
    explicit Draft(std::string const& path)
        : mPath(path + ".part"), mFile(mPath.c_str(), utl::File::UTF8) {}
    ~Draft() {
        // Emptied first: nobody waits until what is not wanted has reached the disk.
        mFile.resize(0ull);
        mFile.close();
        if (mIsThere) {
            mFile.erase(1);
        }
    }
    Draft(Draft const&) = delete;
    Draft& operator=(Draft const&) = delete;

    bool open() {
        errno = 0;
        mIsThere = mFile.open(utl::File::EMPTY, utl::File::READ_WRITE) != 0;
        return check(mIsThere);
    }

    bool write(char const* bytes, unsigned long size) {
        mUnwritten.append(bytes, size);
        mSize += size;
        return mUnwritten.size() < BLOCK_SIZE || flush();
    }

    // Looks first whether the file is as long as it should be, and ends with `end`.
    bool close(std::string const& end) {
        unsigned long long const position = mSize - end.size();
        return flush() &&
               check(mFile.size() == static_cast<long long>(mSize) &&
                     (end.empty() ||
                      mFile.seekKey(end.c_str(), position, end.size(), 0) == position)) &&
               check(mFile.close() != 0);
    }

    bool moveTo(std::string const& path) {
        errno = 0;
        mIsThere = mFile.move(path.c_str()) == 0;
        return check(!mIsThere);
    }

    unsigned long long size() const { return mSize; }

    // After a failure, a sentence about it.
    std::string const& error() const { return mError; }

private:
    static constexpr unsigned long BLOCK_SIZE = 65536;

    // A full disk takes some bytes and refuses the rest: only then is there a reason.
    bool flush() {
        errno = 0;
        for (unsigned long done = 0; done < mUnwritten.size();) {
            long const written = mFile.write(mUnwritten.data() + done, mUnwritten.size() - done);
            if (!check(written > 0)) {
                return false;
            }
            done += static_cast<unsigned long>(written);
        }
        mUnwritten.clear();
        return true;
    }

    bool check(bool isDone) {
        if (!isDone && mError.empty()) {
            mError = "cannot write " + mPath + ": " + reasonOf(errno);
        }
        return isDone;
    }

    std::string const mPath;
    utl::File mFile;
    bool mIsThere = false;
    std::string mUnwritten;
    unsigned long long mSize = 0;
    std::string mError;
};

// The text is followed by a marker line. The index has 40 bits for each line of the text before
// it: where in the text the line begins. They are followed by 64 bits, a hash of the text.
class Output {
public:
    // Of the file `name`, in `directory`.
    Output(std::string const& directory, std::string const& name)
        : mMarker("== end of " + name + "\n"),
          mText(directory + "/" + name + TEXT),
          mIndex(directory + "/" + name + INDEX) {}

    bool open() { return mText.open() && mIndex.open(); }

    bool add(char const* text, unsigned long size) {
        for (unsigned long at = 0; at < size; ++at) {
            mHash = (mHash ^ static_cast<unsigned char>(text[at])) * 1099511628211ull;  // FNV-1a
            if (text[at] == '\n' && !endLine(mText.size() + at + 1)) {
                return false;
            }
        }
        return mText.write(text, size);
    }

    // Ends both files and closes them.
    bool finish() {
        return mText.write(mMarker.data(), mMarker.size()) && store(mHash, HASH_BITS) &&
               mText.close(mMarker) && mIndex.close("");
    }

    // Moves both to their place, or none. What is there is not overwritten.
    bool moveTo(std::string const& path) {
        if (!mText.moveTo(path + TEXT)) {
            return false;
        }
        return mIndex.moveTo(path + INDEX) || !utl::File::erase((path + TEXT).c_str(), 1);
    }

    std::uint64_t lines() const { return mLines; }

    // Of the text. Files that only differ in their encoding have the same.
    std::uint64_t hash() const { return mHash; }

    // After a failure, a sentence about it.
    std::string error() const { return mText.error().empty() ? mIndex.error() : mText.error(); }

    static bool isTaken(std::string const& path) {
        return utl::File::exists((path + TEXT).c_str()) ||
               utl::File::exists((path + INDEX).c_str());
    }

    static void erase(std::string const& path) {
        utl::File::erase((path + TEXT).c_str(), 1);
        utl::File::erase((path + INDEX).c_str(), 1);
    }

    // That of an earlier output. False when there is none.
    static bool readHash(std::string const& path, std::uint64_t* hash) {
        unsigned char bytes[HASH_BITS / 8];
        if (!utl::File::exists((path + INDEX).c_str())) {
            return false;
        }
        utl::File index((path + INDEX).c_str(), utl::File::UTF8);
        long long const size = sizeof bytes;
        if (!index.open(utl::File::AS_IT_IS, utl::File::READ) ||
            index.seek(-size, utl::File::FROM_END) < 0 || index.read(bytes, sizeof bytes) != size) {
            return false;
        }
        *hash =
            utl::BitStream(bytes, sizeof bytes).readBitToUint64(HASH_BITS, utl::BitStream::CURRENT);
        return true;
    }

private:
    static constexpr char TEXT[] = ".txt";
    static constexpr char INDEX[] = ".idx";
    static constexpr unsigned long POSITION_BITS = 40;
    static constexpr unsigned long HASH_BITS = 64;

    bool endLine(unsigned long long end) {
        bool const isStored = store(mLineBegin, POSITION_BITS);
        mLineBegin = end;
        ++mLines;
        return isStored;
    }

    bool store(std::uint64_t value, unsigned long bits) {
        unsigned char entry[HASH_BITS / 8];
        utl::BitStream stream(entry, sizeof entry);
        stream.writeBitToUint64(value, bits, utl::BitStream::CURRENT);
        return mIndex.write(reinterpret_cast<char const*>(entry), stream.getBitStreamSize());
    }

    std::string const mMarker;
    Draft mText;
    Draft mIndex;
    std::uint64_t mLines = 0;
    std::uint64_t mLineBegin = 0;
    std::uint64_t mHash = 14695981039346656037ull;
};

#endif  // TEXTINTAKE_OUTPUT_H
