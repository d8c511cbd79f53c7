// Reads a text file page by page, whatever it holds: what is no text costs a character, never a
// line or the file.

#ifndef TEXTINTAKE_SOURCE_H
#define TEXTINTAKE_SOURCE_H

#include <algorithm>
#include <string>

#include "Encoding.h"
#include "Messages.h"
#include "UtlFile.h"
#include "UtlRawMemory.h"

// Walks through a file from its position on, character by character.
class Characters {
public:
    Characters(utl::File& file, Encoding encoding)
        : mFile(file), mEncoding(encoding), mBegin(file.position()) {}

    // A line end, of whatever bytes, comes as a line feed. False at the end and after a failure.
    bool next(Character* character) {
        if (mSize - mAt < LOOK_AHEAD && !mIsAtEnd) {
            fill();
        }
        if (mAt == mSize) {
            return false;
        }
        *character = here(mAt);
        if (character->text[0] == '\r') {
            takeLineEnd(character);
        }
        mAt += character->bytes;
        return true;
    }

    // In the file, of the next character.
    long long position() const { return mBegin + static_cast<long long>(mAt); }
    void goTo(long long position) {
        mBegin = position;
        mAt = mSize = 0;
        mIsAtEnd = false;
    }

    bool hasFailed() const { return mHasFailed; }

private:
    // A line end takes less, and so does a character.
    static constexpr unsigned long LOOK_AHEAD = 64;
    static constexpr unsigned long BLOCK_SIZE = 4096;

    Character here(unsigned long at) const { return mEncoding.decode(mBlock + at, mSize - at); }

    // Keeps what is left, and reads on behind it.
    void fill() {
        utl::moveMemory(mBlock, mBlock + mAt, mSize - mAt);
        mBegin += static_cast<long long>(mAt);
        mSize -= mAt;
        mAt = 0;
        mFile.seek(mBegin + static_cast<long long>(mSize), utl::File::FROM_START);
        long const read = mFile.read(mBlock + mSize, BLOCK_SIZE - mSize);
        mIsAtEnd = read < 0;
        mHasFailed = mIsAtEnd && read != utl::File::END_OF_FILE;
        mSize += static_cast<unsigned long>(std::max(read, 0l));
        mBlock[mSize] = '\0';
    }

    // Carriage returns before a line feed belong to the line end, as do those at the end of the
    // file.
    void takeLineEnd(Character* character) const {
        unsigned long const width = character->bytes;
        unsigned long end = mAt + width;
        while (end < mSize && end < mAt + LOOK_AHEAD / 2 && here(end).text[0] == '\r') {
            end += width;
        }
        if (end == mSize || here(end).text[0] == '\n') {
            character->bytes = std::min(end + width, mSize) - mAt;
            character->text[0] = '\n';
        }
    }

    utl::File& mFile;
    Encoding const mEncoding;
    long long mBegin;  // of the block, in the file
    unsigned long mAt = 0;
    unsigned long mSize = 0;
    bool mIsAtEnd = false;  // nothing can be read behind the block
    bool mHasFailed = false;
    char mBlock[BLOCK_SIZE + 1];
};

// How often something was wrong, and in which lines at first.
class Places {
public:
    void add(std::uint32_t line, unsigned long count) {
        mCount += count;
        if (count == 0 || (mListed != 0 && mLines[mListed - 1] == line)) {
            return;
        }
        if (mListed == MAX_LISTED) {
            mHasMore = true;
        } else {
            mLines[mListed++] = line;
        }
    }

    // "3 bad bytes (lines 2, 5, 9)"; nothing for none.
    std::string describe(char const* what) const {
        if (mCount == 0) {
            return "";
        }
        std::string text = std::to_string(mCount) + " " + what + (mCount == 1 ? "" : "s") +
                           (mListed == 1 ? " (line " : " (lines ");
        for (unsigned i = 0; i < mListed; ++i) {
            text += (i == 0 ? "" : ", ") + std::to_string(mLines[i]);
        }
        return text + (mHasMore ? ", ...)" : ")");
    }

private:
    static constexpr unsigned MAX_LISTED = 4;

    unsigned long mCount = 0;
    unsigned mListed = 0;
    bool mHasMore = false;
    std::uint32_t mLines[MAX_LISTED] = {};
};

class Source {
public:
    // `file` is open and at the begin of its text.
    Source(utl::File& file, Encoding encoding) : mFile(file), mEncoding(encoding) {
        file.setTextType(encoding.type());
    }

    // Fills the page with what comes next: in the fast way, if no line is under way that the
    // library would refuse. False at the end and after a failure.
    bool next(Page* page) {
        long long const begin = mFile.position();
        State const before = mState;
        mUsed = 0;
        if (mState.lineBytes != 0 || !takeLines(page)) {
            mState = before;
            mUsed = 0;
            mFile.seek(begin, utl::File::FROM_START);
            takeCharacters(page);
        }
        page->text[mUsed] = '\0';
        return mUsed != 0;
    }

    bool hasFailed() const { return mHasFailed; }

    std::uint32_t lines() const { return mState.lines; }

    // What was wrong so far.
    std::string notes() const {
        std::string const bad = mState.bad.describe("bad byte");
        std::string const tooLong = mState.tooLong.describe("long line");
        return bad + (bad.empty() || tooLong.empty() ? "" : "; ") + tooLong;
    }

private:
    static constexpr unsigned long READ_LIMIT = 5119;     // bytes that the library reads at once
    static constexpr unsigned long PLENTY = 1024;         // a page with less room is full
    static constexpr unsigned long ROOM = PAGE_SIZE - 2;  // for text and the end of its last line

    struct State {
        std::uint32_t lines = 0;
        unsigned long long lineBytes = 0;  // of a line that has begun on an earlier page
        Places bad, tooLong;
    };

    bool hasPlenty() const { return mUsed + PLENTY <= ROOM; }

    // The fast way: lines as the library reads them. False when it refuses the first, or when one
    // has text for only some of its bytes: then the sure way takes the whole page.
    bool takeLines(Page* page) {
        while (hasPlenty()) {
            char* const line = page->text + mUsed;
            long const read = mFile.readLine(line, std::min(ROOM + 1 - mUsed, READ_LIMIT), nullptr);
            if (read < 0) {
                return read == utl::File::END_OF_FILE || mUsed != 0;
            }
            if (mEncoding.bytesInFile(line) != static_cast<unsigned long>(read)) {
                return false;
            }
            mUsed += utl::t_strlen(line);
            endLine(page, static_cast<unsigned long>(read), 0);
        }
        return true;
    }

    // The sure way.
    void takeCharacters(Page* page) {
        Characters characters(mFile, mEncoding);
        while (hasPlenty() && takeLine(&characters, page)) {
        }
        mHasFailed = characters.hasFailed();
        mFile.seek(characters.position(), utl::File::FROM_START);
    }

    // False at the end of the file, and for a line without room: of that one as much is taken as an
    // empty page can hold, but nothing where the page is not empty. So a text is cut at the same
    // places in all encodings.
    bool takeLine(Characters* characters, Page* page) {
        long long const begin = characters->position();
        unsigned long const used = mUsed;
        unsigned long bad = 0;
        unsigned long long bytes = 0;
        Character character;
        while (characters->next(&character)) {
            if (character.text[0] == '\n') {
                endLine(page, bytes, bad);
                return true;
            }
            if (character.size > ROOM - mUsed) {
                characters->goTo(used != 0 ? begin : begin + static_cast<long long>(bytes));
                used != 0 ? static_cast<void>(mUsed = used) : cutLine(bytes, bad);
                return false;
            }
            utl::copyMemory(page->text + mUsed, character.text, character.size);
            mUsed += character.size;
            bytes += character.bytes;
            bad += character.isBad ? character.bytes : 0;
        }
        if (bytes != 0) {
            endLine(page, bytes, bad);  // which need not have an end in the file
        }
        return false;
    }

    void cutLine(unsigned long long bytes, unsigned long bad) {
        mState.lineBytes += bytes;
        mState.bad.add(mState.lines + 1, bad);
    }

    void endLine(Page* page, unsigned long long bytes, unsigned long bad) {
        cutLine(bytes, bad);
        page->text[mUsed++] = '\n';
        ++mState.lines;
        mState.tooLong.add(mState.lines, mState.lineBytes > READ_LIMIT ? 1 : 0);
        mState.lineBytes = 0;
    }

    utl::File& mFile;
    Encoding const mEncoding;
    State mState;
    unsigned long mUsed = 0;  // of the page
    bool mHasFailed = false;
};

#endif  // TEXTINTAKE_SOURCE_H
