// What comes of one file: its normalised text in UTF-8, and an index of it.

#ifndef TEXTINTAKE_OUTPUT_H
#define TEXTINTAKE_OUTPUT_H

#include <string>

#include "Messages.h"
#include "Text.h"
#include "UtlBitStream.h"
#include "UtlFile.h"
#include "UtlString.h"

// The text is followed by a marker line. The index has 32 bits for each line of the text before it:
// its length in bytes and its count of words.
class Output {
public:
    Output(std::string const& directory, std::string const& name)
        : mMarker("== end of " + name),
          mText((directory + "/" + name + ".txt").c_str(), utl::File::UTF8),
          mIndex((directory + "/" + name + ".idx").c_str(), utl::File::UTF8) {}

    bool open() {
        return mText.open(utl::File::EMPTY, utl::File::WRITE) &&
               mIndex.open(utl::File::EMPTY, utl::File::WRITE);
    }

    bool add(LineMsg const& line) {
        unsigned long const length = utl::t_strlen(line.text);
        for (char const* byte = line.text; *byte != '\0'; ++byte) {
            mHash = (mHash ^ static_cast<unsigned char>(*byte)) * 16777619u;  // FNV-1a
        }
        mHash = (mHash ^ '\n') * 16777619u;
        unsigned char entry[4];
        utl::BitStream bits(entry, sizeof entry);
        bits.writeBitToUint32(length, LENGTH_BITS, utl::BitStream::CURRENT);
        bits.writeBitToUint32(line.words, WORDS_BITS, utl::BitStream::CURRENT);
        ++mLines;
        return mText.writeLine(line.text) == static_cast<long>(length + 1) &&
               mIndex.write(entry, sizeof entry) == sizeof entry;
    }

    // Ends the text and closes both files.
    bool finish() {
        mMarkerPosition = mText.position();
        bool const isWritten = mText.writeLine(mMarker.c_str()) > 0;
        return mText.close() && mIndex.close() && isWritten;
    }

    // Whether what is in the files is what was added: `lines` lines, each as the index says, and
    // the marker behind them.
    bool verify(std::uint32_t lines) {
        return lines == mLines && mText.open(utl::File::AS_IT_IS, utl::File::READ) &&
               mIndex.open(utl::File::AS_IT_IS, utl::File::READ) && agreesWithIndex() &&
               findsMarker() && mText.close() && mIndex.close();
    }

    // Takes both files away again.
    void discard() {
        mText.close();
        mIndex.close();
        mText.erase(1);
        mIndex.erase(1);
    }

    // Of the text. Files that only differ in their encoding have the same.
    std::uint32_t hash() const { return mHash; }

private:
    static constexpr unsigned long LENGTH_BITS = 20;
    static constexpr unsigned long WORDS_BITS = 12;

    bool agreesWithIndex() {
        char text[MAX_TEXT];
        unsigned char entry[4];
        unsigned long size;
        for (std::uint32_t i = 0; i < mLines; ++i) {
            if (mText.readLine(text, sizeof text, &size) < 0 ||
                mIndex.read(entry, sizeof entry) != sizeof entry) {
                return false;
            }
            utl::BitStream bits(entry, sizeof entry);
            unsigned long const length = bits.readBitToUint32(LENGTH_BITS, utl::BitStream::CURRENT);
            unsigned long const words = bits.readBitToUint32(WORDS_BITS, utl::BitStream::CURRENT);
            if (bits.hasError() || utl::t_strlen(text) != length || countWords(text) != words) {
                return false;
            }
        }
        return true;
    }

    bool findsMarker() {
        return mText.seekKey(mMarker.c_str(), 0, static_cast<unsigned long long>(mText.size()),
                             0) == static_cast<unsigned long long>(mMarkerPosition);
    }

    std::string const mMarker;
    utl::File mText;
    utl::File mIndex;
    std::uint32_t mLines = 0;
    std::uint32_t mHash = 2166136261u;
    long long mMarkerPosition = 0;
};

#endif  // TEXTINTAKE_OUTPUT_H
