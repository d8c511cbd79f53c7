// How a text file encodes its text, and what its bytes say.

#ifndef TEXTINTAKE_ENCODING_H
#define TEXTINTAKE_ENCODING_H

#include "UtlCharSet.h"
#include "UtlFile.h"
#include "UtlRawMemory.h"
#include "UtlString.h"

// What a file holds at one place.
struct Character {
    char text[5] = "";        // in UTF-8; empty for a byte order mark
    unsigned long size = 0;   // of the text
    unsigned long bytes = 0;  // in the file
    bool isBad = false;       // no character: the text is U+FFFD
};

class Encoding {
public:
    // One of the text types of utl::File.
    explicit Encoding(int type) : mType(type) {}

    // That of a file: by its byte order mark, behind which its position then is, or else by its
    // extension, or else UTF-8.
    static Encoding of(utl::File& file) {
        unsigned char mark[3] = {};
        file.read(mark, sizeof mark);
        unsigned const pair = mark[0] * 256u + mark[1];
        if (pair == 0xFEFF || pair == 0xFFFE) {
            file.seek(2, utl::File::FROM_START);
            return Encoding(pair == 0xFEFF ? utl::File::UTF16_HIGH_FIRST
                                           : utl::File::UTF16_LOW_FIRST);
        }
        bool const isUtf8 = pair == 0xEFBB && mark[2] == 0xBF;
        file.seek(isUtf8 ? 3 : 0, utl::File::FROM_START);
        return isUtf8 ? Encoding(utl::File::UTF8) : ofExtension(file);
    }

    int type() const { return mType; }

    char const* name() const {
        static constexpr char const* NAMES[] = {"Shift_JIS", "UTF-8", "UTF-16BE", "UTF-16LE"};
        return NAMES[mType];
    }

    // How many bytes of a file the library has read `text` from. When it was more than this, there
    // was something among them that it leaves out or replaces. NONE where that cannot be told.
    unsigned long bytesInFile(char const* text) const {
        if (mType == utl::File::UTF8) {
            return utl::t_strlen(text);
        }
        unsigned long bytes = 0;
        for (unsigned long size; (size = utl::t_charlen(text)) != 0; text += size) {
            bool const isReplacement = mType == utl::File::SHIFT_JIS && *text == '*';
            if (size == utl::NONE || isReplacement || isSurrogate(text)) {
                return utl::NONE;
            }
            bytes += isUtf16() || (size != 1 && !isHalfWidthKana(text)) ? 2 : 1;
        }
        return bytes;
    }

    // What `size` bytes of a file, at least 1 and with a terminator behind them, begin with.
    Character decode(char const* bytes, unsigned long size) const {
        Character character = isUtf16()                       ? decodeUtf16(bytes, size)
                              : mType == utl::File::SHIFT_JIS ? decodeSjis(bytes)
                                                              : decodeUtf8(bytes);
        if (character.isBad) {
            character.size = utl::copyStr(character.text, sizeof character.text, "\xEF\xBF\xBD",
                                          utl::ALL, utl::WHOLE) -
                             1;
        }
        return character;
    }

private:
    static Encoding ofExtension(utl::File const& file) {
        static constexpr struct {
            char const* extension;
            int type;
        } KNOWN[] = {{"sjis", utl::File::SHIFT_JIS},
                     {"utf16be", utl::File::UTF16_HIGH_FIRST},
                     {"utf16le", utl::File::UTF16_LOW_FIRST}};
        utl::BasicString<char> extension;
        file.getExtension(&extension);
        for (auto const& known : KNOWN) {
            if (utl::compareStrNoCase(extension.c_str(), known.extension, utl::ALL) == 0) {
                return Encoding(known.type);
            }
        }
        return Encoding(utl::File::UTF8);
    }

    static Character decodeUtf8(char const* bytes) {
        Character character;
        bool isMark = false;
        unsigned long const size = utl::t_charlen(bytes, &isMark);
        character.isBad = size == 0 || size == utl::NONE;
        character.bytes = character.isBad ? 1 : size;
        if (!character.isBad && !isMark) {
            character.size = size;
            utl::copyMemory(character.text, bytes, size);
        }
        return character;
    }

    // A lead byte before what cannot be the second one of a pair is bad alone: that may be a line
    // end.
    static Character decodeSjis(char const* bytes) {
        Character character;
        character.size = utl::convertCharFromSjisToUtf8(character.text, sizeof character.text,
                                                        bytes, &character.bytes);
        bool const isRaw = character.size == 1 && (character.text[0] & 0x80) != 0;
        character.isBad = character.text[0] == '\0' || isRaw;
        if (character.isBad && character.bytes == 2 && (bytes[1] & 0xC0) == 0) {
            character.bytes = 1;
        }
        return character;
    }

    // The library takes unit for unit; here two surrogates make one character.
    Character decodeUtf16(char const* bytes, unsigned long size) const {
        Character character;
        unsigned const unit = unitAt(bytes, size);
        unsigned const next = unitAt(bytes + 2, size < 2 ? 0 : size - 2);
        bool const isPair = (unit & 0xFC00) == 0xD800 && (next & 0xFC00) == 0xDC00;
        character.bytes = size == 1 ? 1 : isPair ? 4 : 2;
        character.isBad = unit == 0 || (!isPair && (unit & 0xF800) == 0xD800);
        if (isPair) {
            unsigned long const code = 0x10000ul + ((unit & 0x3FFul) << 10 | (next & 0x3FF));
            character.size = 4;
            character.text[0] = static_cast<char>(0xF0 | code >> 18);
            character.text[1] = static_cast<char>(0x80 | (code >> 12 & 0x3F));
            character.text[2] = static_cast<char>(0x80 | (code >> 6 & 0x3F));
            character.text[3] = static_cast<char>(0x80 | (code & 0x3F));
        } else if (!character.isBad) {
            character.size = utl::convertCharFromUtf16ToUtf8(
                character.text, sizeof character.text, static_cast<unsigned short>(unit), nullptr);
        }
        return character;
    }

    // 0 where there is no whole one.
    unsigned unitAt(char const* bytes, unsigned long size) const {
        unsigned short unit = 0;
        if (size >= 2) {
            utl::convertBinFromUint8ToDchar(&unit, 1, reinterpret_cast<unsigned char const*>(bytes),
                                            2, mType == utl::File::UTF16_HIGH_FIRST ? 1 : 0);
        }
        return unit;
    }

    bool isUtf16() const {
        return mType == utl::File::UTF16_HIGH_FIRST || mType == utl::File::UTF16_LOW_FIRST;
    }

    static bool isSurrogate(char const* character) {
        return character[0] == '\xED' && static_cast<unsigned char>(character[1]) >= 0xA0;
    }

    // U+FF61 to U+FF9F.
    static bool isHalfWidthKana(char const* character) {
        unsigned char const second = static_cast<unsigned char>(character[1]);
        unsigned char const third = static_cast<unsigned char>(character[2]);
        return character[0] == '\xEF' &&
               ((second == 0xBD && third >= 0xA1) || (second == 0xBE && third <= 0x9F));
    }

    int mType;
};

#endif  // TEXTINTAKE_ENCODING_H
