// Japanese text as it is written: kanji with hiragana behind them, katakana words, here and there
// a word or a number in ASCII, and lines of some 60 bytes in CP932.

#ifndef UTL_BENCH_JAPANESE_TEXT_H
#define UTL_BENCH_JAPANESE_TEXT_H

#include <iterator>
#include <random>
#include <string>

namespace bench {

// `bytes` of UTF-8, or a few less; the same for the same seed.
inline std::string makeJapaneseText(unsigned long bytes, unsigned seed = 932) {
    static std::u16string const KANJI =
        u"日本語文字列変換設定画面表示時刻番組音楽再生中止録可能不明読込書出確認電源入切左右上下"
        u"前後大小新旧開始終了検索結果名称種類機器接続通信状態異常正";
    static std::u16string const HIRAGANA =
        u"あいうえおかがきくけこさしすせそただちってとなにのはまもらりるれをん";
    static std::u16string const PARTICLES = u"のはをにがとでの";
    static std::u16string const KATAKANA =
        u"アイウエオカキクグコサシスセソタチッテトドナニノハバフプマミムメモラリルレロンー";
    static char const* const WORDS[] = {"USB ", "title ", "128",    "CD ",
                                        "7",    "2024",   "Audio ", "MB "};
    std::mt19937 random(seed);
    auto const pick = [&](unsigned long below) { return random() % below; };
    std::string text;
    auto const append = [&](std::u16string const& set, unsigned long count) {
        for (; count > 0; --count) {
            unsigned const c = set[pick(set.size())];
            text += {static_cast<char>(0xE0 | c >> 12), static_cast<char>(0x80 | (c >> 6 & 0x3F)),
                     static_cast<char>(0x80 | (c & 0x3F))};
        }
    };
    for (unsigned long lineStart = 0; text.size() + 48 <= bytes;) {
        append(KANJI, 1 + pick(3));
        append(PARTICLES, 1);
        append(HIRAGANA, pick(4));
        if (pick(4) == 0) {
            append(KATAKANA, 3 + pick(4));
        }
        if (pick(5) == 0) {
            text += WORDS[pick(std::size(WORDS))];
        }
        if (text.size() - lineStart > 60) {
            text += "。\n";
            lineStart = text.size();
        }
    }
    return text;
}

}  // namespace bench

#endif  // UTL_BENCH_JAPANESE_TEXT_H
