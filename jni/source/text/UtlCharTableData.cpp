#include "UtlCharTable.h"

namespace utl {

// constexpr has the compiler prove that nothing is left to run at start-up. The macros make both
// forms of a text from the one literal, so that they cannot differ. {} closes a table.
// clang-format off
#define TEXT(text) {text, L##text}
#define ROW(first, second) {TEXT(first), TEXT(second)}

constexpr DualText KAIGYO_TBL[] = {TEXT("\x0D"), TEXT("\x0A"), {}};
constexpr DualText TAB_FF_TBL[] = {TEXT("\x09"), TEXT("\x0B"), TEXT("\x0C"), {}};
constexpr DualText CTL_OTHER_TBL[] = {
    TEXT("\x01"), TEXT("\x02"), TEXT("\x03"), TEXT("\x04"), TEXT("\x05"), TEXT("\x06"),
    TEXT("\x07"), TEXT("\x08"), TEXT("\x0E"), TEXT("\x0F"), TEXT("\x10"), TEXT("\x11"),
    TEXT("\x12"), TEXT("\x13"), TEXT("\x14"), TEXT("\x15"), TEXT("\x16"), TEXT("\x17"),
    TEXT("\x18"), TEXT("\x19"), TEXT("\x1A"), TEXT("\x1B"), TEXT("\x1C"), TEXT("\x1D"),
    TEXT("\x1E"), TEXT("\x1F"), TEXT("\x7F"),
    {}};

constexpr DualText HAN_SPACE_TBL[] = {TEXT(" "), {}};
constexpr DualText ZEN_SPACE_TBL[] = {TEXT("\u3000"), {}};

constexpr DualText HAN_MARK_TBL[] = {
    TEXT("!"), TEXT("\""), TEXT("#"), TEXT("$"), TEXT("%"), TEXT("&"), TEXT("'"), TEXT("("),
    TEXT(")"), TEXT("*"), TEXT("+"), TEXT(","), TEXT("-"), TEXT("."), TEXT("/"), TEXT(":"),
    TEXT(";"), TEXT("<"), TEXT("="), TEXT(">"), TEXT("?"), TEXT("@"), TEXT("["), TEXT("\\"),
    TEXT("]"), TEXT("^"), TEXT("_"), TEXT("`"), TEXT("{"), TEXT("|"), TEXT("}"), TEXT("~"),
    {}};

// Code point for code point ASCII + 0xFEE0, but for the quotes U+201D and U+2019, the yen sign
// U+FFE5 and the macron U+FFE3.
constexpr DualText ZEN_MARK_TBL[] = {
    TEXT("！"), TEXT("”"), TEXT("＃"), TEXT("＄"), TEXT("％"), TEXT("＆"), TEXT("’"), TEXT("（"),
    TEXT("）"), TEXT("＊"), TEXT("＋"), TEXT("，"), TEXT("－"), TEXT("．"), TEXT("／"), TEXT("："),
    TEXT("；"), TEXT("＜"), TEXT("＝"), TEXT("＞"), TEXT("？"), TEXT("＠"), TEXT("［"), TEXT("￥"),
    TEXT("］"), TEXT("＾"), TEXT("＿"), TEXT("｀"), TEXT("｛"), TEXT("｜"), TEXT("｝"), TEXT("￣"),
    {}};

constexpr DualText HAN_DIGIT_TBL[] = {
    TEXT("0"), TEXT("1"), TEXT("2"), TEXT("3"), TEXT("4"),
    TEXT("5"), TEXT("6"), TEXT("7"), TEXT("8"), TEXT("9"),
    {}};
constexpr DualText ZEN_DIGIT_TBL[] = {
    TEXT("０"), TEXT("１"), TEXT("２"), TEXT("３"), TEXT("４"),
    TEXT("５"), TEXT("６"), TEXT("７"), TEXT("８"), TEXT("９"),
    {}};

constexpr DualText HAN_SIGN_TBL[] = {TEXT("+"), TEXT("-"), {}};
constexpr DualText ZEN_SIGN_TBL[] = {TEXT("＋"), TEXT("－"), {}};
constexpr DualText HAN_HEX_PREFIX_TBL[] = {TEXT("0x"), {}};
constexpr DualText ZEN_HEX_PREFIX_TBL[] = {TEXT("０ｘ"), {}};
constexpr DualText HAN_HEX_SUFFIX_TBL[] = {TEXT("H"), TEXT("h"), {}};
constexpr DualText ZEN_HEX_SUFFIX_TBL[] = {TEXT("Ｈ"), TEXT("ｈ"), {}};

constexpr DualText LOWER_HAN_HEX_ALPHA_TBL[] = {
    TEXT("a"), TEXT("b"), TEXT("c"), TEXT("d"), TEXT("e"), TEXT("f"),
    {}};
constexpr DualText LOWER_ZEN_HEX_ALPHA_TBL[] = {
    TEXT("ａ"), TEXT("ｂ"), TEXT("ｃ"), TEXT("ｄ"), TEXT("ｅ"), TEXT("ｆ"),
    {}};
constexpr DualText UPPER_HAN_HEX_ALPHA_TBL[] = {
    TEXT("A"), TEXT("B"), TEXT("C"), TEXT("D"), TEXT("E"), TEXT("F"),
    {}};
constexpr DualText UPPER_ZEN_HEX_ALPHA_TBL[] = {
    TEXT("Ａ"), TEXT("Ｂ"), TEXT("Ｃ"), TEXT("Ｄ"), TEXT("Ｅ"), TEXT("Ｆ"),
    {}};

constexpr DualText LOWER_HAN_NOHEX_ALPHA_TBL[] = {
    TEXT("g"), TEXT("h"), TEXT("i"), TEXT("j"), TEXT("k"), TEXT("l"),
    TEXT("m"), TEXT("n"), TEXT("o"), TEXT("p"), TEXT("q"), TEXT("r"),
    TEXT("s"), TEXT("t"), TEXT("u"), TEXT("v"), TEXT("w"), TEXT("x"),
    TEXT("y"), TEXT("z"),
    {}};
constexpr DualText LOWER_ZEN_NOHEX_ALPHA_TBL[] = {
    TEXT("ｇ"), TEXT("ｈ"), TEXT("ｉ"), TEXT("ｊ"), TEXT("ｋ"), TEXT("ｌ"),
    TEXT("ｍ"), TEXT("ｎ"), TEXT("ｏ"), TEXT("ｐ"), TEXT("ｑ"), TEXT("ｒ"),
    TEXT("ｓ"), TEXT("ｔ"), TEXT("ｕ"), TEXT("ｖ"), TEXT("ｗ"), TEXT("ｘ"),
    TEXT("ｙ"), TEXT("ｚ"),
    {}};
constexpr DualText UPPER_HAN_NOHEX_ALPHA_TBL[] = {
    TEXT("G"), TEXT("H"), TEXT("I"), TEXT("J"), TEXT("K"), TEXT("L"),
    TEXT("M"), TEXT("N"), TEXT("O"), TEXT("P"), TEXT("Q"), TEXT("R"),
    TEXT("S"), TEXT("T"), TEXT("U"), TEXT("V"), TEXT("W"), TEXT("X"),
    TEXT("Y"), TEXT("Z"),
    {}};
constexpr DualText UPPER_ZEN_NOHEX_ALPHA_TBL[] = {
    TEXT("Ｇ"), TEXT("Ｈ"), TEXT("Ｉ"), TEXT("Ｊ"), TEXT("Ｋ"), TEXT("Ｌ"),
    TEXT("Ｍ"), TEXT("Ｎ"), TEXT("Ｏ"), TEXT("Ｐ"), TEXT("Ｑ"), TEXT("Ｒ"),
    TEXT("Ｓ"), TEXT("Ｔ"), TEXT("Ｕ"), TEXT("Ｖ"), TEXT("Ｗ"), TEXT("Ｘ"),
    TEXT("Ｙ"), TEXT("Ｚ"),
    {}};

constexpr DualText NODAKU_HAN_KATA_TBL[] = {
    TEXT("｡"), TEXT("｢"), TEXT("｣"), TEXT("､"), TEXT("･"),
    TEXT("ｱ"), TEXT("ｲ"), TEXT("ｳ"), TEXT("ｴ"), TEXT("ｵ"),
    TEXT("ｶ"), TEXT("ｷ"), TEXT("ｸ"), TEXT("ｹ"), TEXT("ｺ"),
    TEXT("ｻ"), TEXT("ｼ"), TEXT("ｽ"), TEXT("ｾ"), TEXT("ｿ"),
    TEXT("ﾀ"), TEXT("ﾁ"), TEXT("ﾂ"), TEXT("ﾃ"), TEXT("ﾄ"),
    TEXT("ﾅ"), TEXT("ﾆ"), TEXT("ﾇ"), TEXT("ﾈ"), TEXT("ﾉ"),
    TEXT("ﾊ"), TEXT("ﾋ"), TEXT("ﾌ"), TEXT("ﾍ"), TEXT("ﾎ"),
    TEXT("ﾏ"), TEXT("ﾐ"), TEXT("ﾑ"), TEXT("ﾒ"), TEXT("ﾓ"),
    TEXT("ﾔ"), TEXT("ﾕ"), TEXT("ﾖ"),
    TEXT("ﾗ"), TEXT("ﾘ"), TEXT("ﾙ"), TEXT("ﾚ"), TEXT("ﾛ"),
    TEXT("ﾜ"), TEXT("ｦ"), TEXT("ﾝ"),
    TEXT("ｧ"), TEXT("ｨ"), TEXT("ｩ"), TEXT("ｪ"), TEXT("ｫ"),
    TEXT("ｬ"), TEXT("ｭ"), TEXT("ｮ"), TEXT("ｯ"), TEXT("ｰ"),
    {}};

constexpr DualText NODAKU_ZEN_KATA_TBL[] = {
    TEXT("。"), TEXT("「"), TEXT("」"), TEXT("、"), TEXT("・"),
    TEXT("ア"), TEXT("イ"), TEXT("ウ"), TEXT("エ"), TEXT("オ"),
    TEXT("カ"), TEXT("キ"), TEXT("ク"), TEXT("ケ"), TEXT("コ"),
    TEXT("サ"), TEXT("シ"), TEXT("ス"), TEXT("セ"), TEXT("ソ"),
    TEXT("タ"), TEXT("チ"), TEXT("ツ"), TEXT("テ"), TEXT("ト"),
    TEXT("ナ"), TEXT("ニ"), TEXT("ヌ"), TEXT("ネ"), TEXT("ノ"),
    TEXT("ハ"), TEXT("ヒ"), TEXT("フ"), TEXT("ヘ"), TEXT("ホ"),
    TEXT("マ"), TEXT("ミ"), TEXT("ム"), TEXT("メ"), TEXT("モ"),
    TEXT("ヤ"), TEXT("ユ"), TEXT("ヨ"),
    TEXT("ラ"), TEXT("リ"), TEXT("ル"), TEXT("レ"), TEXT("ロ"),
    TEXT("ワ"), TEXT("ヲ"), TEXT("ン"),
    TEXT("ヰ"), TEXT("ヱ"), TEXT("ヵ"), TEXT("ヶ"), TEXT("ヽ"),
    TEXT("ァ"), TEXT("ィ"), TEXT("ゥ"), TEXT("ェ"), TEXT("ォ"),
    TEXT("ャ"), TEXT("ュ"), TEXT("ョ"), TEXT("ッ"), TEXT("ヮ"), TEXT("ー"),
    {}};

constexpr DualText DAKU_HAN_KATA_TBL[] = {
    TEXT("ｶﾞ"), TEXT("ｷﾞ"), TEXT("ｸﾞ"), TEXT("ｹﾞ"), TEXT("ｺﾞ"),
    TEXT("ｻﾞ"), TEXT("ｼﾞ"), TEXT("ｽﾞ"), TEXT("ｾﾞ"), TEXT("ｿﾞ"),
    TEXT("ﾀﾞ"), TEXT("ﾁﾞ"), TEXT("ﾂﾞ"), TEXT("ﾃﾞ"), TEXT("ﾄﾞ"),
    TEXT("ﾊﾞ"), TEXT("ﾋﾞ"), TEXT("ﾌﾞ"), TEXT("ﾍﾞ"), TEXT("ﾎﾞ"),
    TEXT("ｳﾞ"), TEXT("ﾞ"),
    {}};

constexpr DualText DAKU_ZEN_KATA_TBL[] = {
    TEXT("ガ"), TEXT("ギ"), TEXT("グ"), TEXT("ゲ"), TEXT("ゴ"),
    TEXT("ザ"), TEXT("ジ"), TEXT("ズ"), TEXT("ゼ"), TEXT("ゾ"),
    TEXT("ダ"), TEXT("ヂ"), TEXT("ヅ"), TEXT("デ"), TEXT("ド"),
    TEXT("バ"), TEXT("ビ"), TEXT("ブ"), TEXT("ベ"), TEXT("ボ"),
    TEXT("ヴ"), TEXT("ヾ"), TEXT("゛"),
    {}};

constexpr DualText HANDAKU_HAN_KATA_TBL[] = {
    TEXT("ﾊﾟ"), TEXT("ﾋﾟ"), TEXT("ﾌﾟ"), TEXT("ﾍﾟ"), TEXT("ﾎﾟ"), TEXT("ﾟ"),
    {}};

constexpr DualText HANDAKU_ZEN_KATA_TBL[] = {
    TEXT("パ"), TEXT("ピ"), TEXT("プ"), TEXT("ペ"), TEXT("ポ"), TEXT("゜"),
    {}};

constexpr DualText NODAKU_HIRA_TBL[] = {
    TEXT("。"), TEXT("「"), TEXT("」"), TEXT("、"), TEXT("・"),
    TEXT("あ"), TEXT("い"), TEXT("う"), TEXT("え"), TEXT("お"),
    TEXT("か"), TEXT("き"), TEXT("く"), TEXT("け"), TEXT("こ"),
    TEXT("さ"), TEXT("し"), TEXT("す"), TEXT("せ"), TEXT("そ"),
    TEXT("た"), TEXT("ち"), TEXT("つ"), TEXT("て"), TEXT("と"),
    TEXT("な"), TEXT("に"), TEXT("ぬ"), TEXT("ね"), TEXT("の"),
    TEXT("は"), TEXT("ひ"), TEXT("ふ"), TEXT("へ"), TEXT("ほ"),
    TEXT("ま"), TEXT("み"), TEXT("む"), TEXT("め"), TEXT("も"),
    TEXT("や"), TEXT("ゆ"), TEXT("よ"),
    TEXT("ら"), TEXT("り"), TEXT("る"), TEXT("れ"), TEXT("ろ"),
    TEXT("わ"), TEXT("を"), TEXT("ん"),
    TEXT("ゐ"), TEXT("ゑ"), TEXT("ゝ"),
    TEXT("ぁ"), TEXT("ぃ"), TEXT("ぅ"), TEXT("ぇ"), TEXT("ぉ"),
    TEXT("ゃ"), TEXT("ゅ"), TEXT("ょ"), TEXT("っ"), TEXT("ゎ"), TEXT("ー"),
    {}};

// Deliberate: the five marks stand in both voiced tables too; conversions of kana carry them along.
constexpr DualText DAKU_HIRA_TBL[] = {
    TEXT("。"), TEXT("「"), TEXT("」"), TEXT("、"), TEXT("・"),
    TEXT("が"), TEXT("ぎ"), TEXT("ぐ"), TEXT("げ"), TEXT("ご"),
    TEXT("ざ"), TEXT("じ"), TEXT("ず"), TEXT("ぜ"), TEXT("ぞ"),
    TEXT("だ"), TEXT("ぢ"), TEXT("づ"), TEXT("で"), TEXT("ど"),
    TEXT("ば"), TEXT("び"), TEXT("ぶ"), TEXT("べ"), TEXT("ぼ"),
    TEXT("ゞ"), TEXT("゛"),
    {}};

constexpr DualText HANDAKU_HIRA_TBL[] = {
    TEXT("。"), TEXT("「"), TEXT("」"), TEXT("、"), TEXT("・"),
    TEXT("ぱ"), TEXT("ぴ"), TEXT("ぷ"), TEXT("ぺ"), TEXT("ぽ"), TEXT("゜"),
    {}};

constexpr DualText HAN_KATA_YOUSOKU_TBL[] = {
    TEXT("ｧ"), TEXT("ｨ"), TEXT("ｩ"), TEXT("ｪ"), TEXT("ｫ"),
    TEXT("ｬ"), TEXT("ｭ"), TEXT("ｮ"), TEXT("ｯ"),
    {}};
constexpr DualText ZEN_KATA_YOUSOKU_TBL[] = {
    TEXT("ァ"), TEXT("ィ"), TEXT("ゥ"), TEXT("ェ"), TEXT("ォ"),
    TEXT("ャ"), TEXT("ュ"), TEXT("ョ"), TEXT("ッ"), TEXT("ヮ"),
    {}};
constexpr DualText HIRA_YOUSOKU_TBL[] = {
    TEXT("ぁ"), TEXT("ぃ"), TEXT("ぅ"), TEXT("ぇ"), TEXT("ぉ"),
    TEXT("ゃ"), TEXT("ゅ"), TEXT("ょ"), TEXT("っ"), TEXT("ゎ"),
    {}};

constexpr DualText HAN_DAKUTEN_TBL[] = {TEXT("ﾞ"), {}};
constexpr DualText ZEN_DAKUTEN_TBL[] = {TEXT("゛"), {}};
constexpr DualText HAN_HANDAKUTEN_TBL[] = {TEXT("ﾟ"), {}};
constexpr DualText ZEN_HANDAKUTEN_TBL[] = {TEXT("゜"), {}};

constexpr PairAttrib LOWER_UPPER_PAIR[] = {
    ROW("a", "A"), ROW("b", "B"), ROW("c", "C"), ROW("d", "D"), ROW("e", "E"), ROW("f", "F"),
    ROW("g", "G"), ROW("h", "H"), ROW("i", "I"), ROW("j", "J"), ROW("k", "K"), ROW("l", "L"),
    ROW("m", "M"), ROW("n", "N"), ROW("o", "O"), ROW("p", "P"), ROW("q", "Q"), ROW("r", "R"),
    ROW("s", "S"), ROW("t", "T"), ROW("u", "U"), ROW("v", "V"), ROW("w", "W"), ROW("x", "X"),
    ROW("y", "Y"), ROW("z", "Z"),
    ROW("ａ", "Ａ"), ROW("ｂ", "Ｂ"), ROW("ｃ", "Ｃ"), ROW("ｄ", "Ｄ"), ROW("ｅ", "Ｅ"),
    ROW("ｆ", "Ｆ"), ROW("ｇ", "Ｇ"), ROW("ｈ", "Ｈ"), ROW("ｉ", "Ｉ"), ROW("ｊ", "Ｊ"),
    ROW("ｋ", "Ｋ"), ROW("ｌ", "Ｌ"), ROW("ｍ", "Ｍ"), ROW("ｎ", "Ｎ"), ROW("ｏ", "Ｏ"),
    ROW("ｐ", "Ｐ"), ROW("ｑ", "Ｑ"), ROW("ｒ", "Ｒ"), ROW("ｓ", "Ｓ"), ROW("ｔ", "Ｔ"),
    ROW("ｕ", "Ｕ"), ROW("ｖ", "Ｖ"), ROW("ｗ", "Ｗ"), ROW("ｘ", "Ｘ"), ROW("ｙ", "Ｙ"),
    ROW("ｚ", "Ｚ"),
    {}};

// The voiced kana before the unvoiced ones, with which they begin.
constexpr PairAttrib HANKAKU_ZENKAKU_PAIR[] = {
    ROW(" ", "\u3000"),
    ROW("0", "０"), ROW("1", "１"), ROW("2", "２"), ROW("3", "３"), ROW("4", "４"),
    ROW("5", "５"), ROW("6", "６"), ROW("7", "７"), ROW("8", "８"), ROW("9", "９"),
    ROW("A", "Ａ"), ROW("B", "Ｂ"), ROW("C", "Ｃ"), ROW("D", "Ｄ"), ROW("E", "Ｅ"), ROW("F", "Ｆ"),
    ROW("G", "Ｇ"), ROW("H", "Ｈ"), ROW("I", "Ｉ"), ROW("J", "Ｊ"), ROW("K", "Ｋ"), ROW("L", "Ｌ"),
    ROW("M", "Ｍ"), ROW("N", "Ｎ"), ROW("O", "Ｏ"), ROW("P", "Ｐ"), ROW("Q", "Ｑ"), ROW("R", "Ｒ"),
    ROW("S", "Ｓ"), ROW("T", "Ｔ"), ROW("U", "Ｕ"), ROW("V", "Ｖ"), ROW("W", "Ｗ"), ROW("X", "Ｘ"),
    ROW("Y", "Ｙ"), ROW("Z", "Ｚ"),
    ROW("a", "ａ"), ROW("b", "ｂ"), ROW("c", "ｃ"), ROW("d", "ｄ"), ROW("e", "ｅ"), ROW("f", "ｆ"),
    ROW("g", "ｇ"), ROW("h", "ｈ"), ROW("i", "ｉ"), ROW("j", "ｊ"), ROW("k", "ｋ"), ROW("l", "ｌ"),
    ROW("m", "ｍ"), ROW("n", "ｎ"), ROW("o", "ｏ"), ROW("p", "ｐ"), ROW("q", "ｑ"), ROW("r", "ｒ"),
    ROW("s", "ｓ"), ROW("t", "ｔ"), ROW("u", "ｕ"), ROW("v", "ｖ"), ROW("w", "ｗ"), ROW("x", "ｘ"),
    ROW("y", "ｙ"), ROW("z", "ｚ"),
    ROW("!", "！"), ROW("\"", "”"), ROW("#", "＃"), ROW("$", "＄"), ROW("%", "％"), ROW("&", "＆"),
    ROW("'", "’"), ROW("(", "（"), ROW(")", "）"), ROW("*", "＊"), ROW("+", "＋"), ROW(",", "，"),
    ROW("-", "－"), ROW(".", "．"), ROW("/", "／"), ROW(":", "："), ROW(";", "；"), ROW("<", "＜"),
    ROW("=", "＝"), ROW(">", "＞"), ROW("?", "？"), ROW("@", "＠"), ROW("[", "［"), ROW("\\", "￥"),
    ROW("]", "］"), ROW("^", "＾"), ROW("_", "＿"), ROW("`", "｀"), ROW("{", "｛"), ROW("|", "｜"),
    ROW("}", "｝"), ROW("~", "￣"),
    ROW("ｶﾞ", "ガ"), ROW("ｷﾞ", "ギ"), ROW("ｸﾞ", "グ"), ROW("ｹﾞ", "ゲ"), ROW("ｺﾞ", "ゴ"),
    ROW("ｻﾞ", "ザ"), ROW("ｼﾞ", "ジ"), ROW("ｽﾞ", "ズ"), ROW("ｾﾞ", "ゼ"), ROW("ｿﾞ", "ゾ"),
    ROW("ﾀﾞ", "ダ"), ROW("ﾁﾞ", "ヂ"), ROW("ﾂﾞ", "ヅ"), ROW("ﾃﾞ", "デ"), ROW("ﾄﾞ", "ド"),
    ROW("ﾊﾞ", "バ"), ROW("ﾋﾞ", "ビ"), ROW("ﾌﾞ", "ブ"), ROW("ﾍﾞ", "ベ"), ROW("ﾎﾞ", "ボ"),
    ROW("ｳﾞ", "ヴ"), ROW("ﾞ", "゛"),
    ROW("ﾊﾟ", "パ"), ROW("ﾋﾟ", "ピ"), ROW("ﾌﾟ", "プ"), ROW("ﾍﾟ", "ペ"), ROW("ﾎﾟ", "ポ"),
    ROW("ﾟ", "゜"),
    ROW("｡", "。"), ROW("｢", "「"), ROW("｣", "」"), ROW("､", "、"), ROW("･", "・"),
    ROW("ｱ", "ア"), ROW("ｲ", "イ"), ROW("ｳ", "ウ"), ROW("ｴ", "エ"), ROW("ｵ", "オ"),
    ROW("ｶ", "カ"), ROW("ｷ", "キ"), ROW("ｸ", "ク"), ROW("ｹ", "ケ"), ROW("ｺ", "コ"),
    ROW("ｻ", "サ"), ROW("ｼ", "シ"), ROW("ｽ", "ス"), ROW("ｾ", "セ"), ROW("ｿ", "ソ"),
    ROW("ﾀ", "タ"), ROW("ﾁ", "チ"), ROW("ﾂ", "ツ"), ROW("ﾃ", "テ"), ROW("ﾄ", "ト"),
    ROW("ﾅ", "ナ"), ROW("ﾆ", "ニ"), ROW("ﾇ", "ヌ"), ROW("ﾈ", "ネ"), ROW("ﾉ", "ノ"),
    ROW("ﾊ", "ハ"), ROW("ﾋ", "ヒ"), ROW("ﾌ", "フ"), ROW("ﾍ", "ヘ"), ROW("ﾎ", "ホ"),
    ROW("ﾏ", "マ"), ROW("ﾐ", "ミ"), ROW("ﾑ", "ム"), ROW("ﾒ", "メ"), ROW("ﾓ", "モ"),
    ROW("ﾔ", "ヤ"), ROW("ﾕ", "ユ"), ROW("ﾖ", "ヨ"),
    ROW("ﾗ", "ラ"), ROW("ﾘ", "リ"), ROW("ﾙ", "ル"), ROW("ﾚ", "レ"), ROW("ﾛ", "ロ"),
    ROW("ﾜ", "ワ"), ROW("ｦ", "ヲ"), ROW("ﾝ", "ン"),
    ROW("ｧ", "ァ"), ROW("ｨ", "ィ"), ROW("ｩ", "ゥ"), ROW("ｪ", "ェ"), ROW("ｫ", "ォ"),
    ROW("ｬ", "ャ"), ROW("ｭ", "ュ"), ROW("ｮ", "ョ"), ROW("ｯ", "ッ"), ROW("ｰ", "ー"),
    {}};

// A mark that stands alone is its own voiced form.
constexpr PairAttrib NODAKUON_DAKUON_PAIR[] = {
    ROW("ｶ", "ｶﾞ"), ROW("ｷ", "ｷﾞ"), ROW("ｸ", "ｸﾞ"), ROW("ｹ", "ｹﾞ"), ROW("ｺ", "ｺﾞ"),
    ROW("ｻ", "ｻﾞ"), ROW("ｼ", "ｼﾞ"), ROW("ｽ", "ｽﾞ"), ROW("ｾ", "ｾﾞ"), ROW("ｿ", "ｿﾞ"),
    ROW("ﾀ", "ﾀﾞ"), ROW("ﾁ", "ﾁﾞ"), ROW("ﾂ", "ﾂﾞ"), ROW("ﾃ", "ﾃﾞ"), ROW("ﾄ", "ﾄﾞ"),
    ROW("ﾊ", "ﾊﾞ"), ROW("ﾋ", "ﾋﾞ"), ROW("ﾌ", "ﾌﾞ"), ROW("ﾍ", "ﾍﾞ"), ROW("ﾎ", "ﾎﾞ"),
    ROW("ｳ", "ｳﾞ"), ROW("ﾞ", "ﾞ"),
    ROW("カ", "ガ"), ROW("キ", "ギ"), ROW("ク", "グ"), ROW("ケ", "ゲ"), ROW("コ", "ゴ"),
    ROW("サ", "ザ"), ROW("シ", "ジ"), ROW("ス", "ズ"), ROW("セ", "ゼ"), ROW("ソ", "ゾ"),
    ROW("タ", "ダ"), ROW("チ", "ヂ"), ROW("ツ", "ヅ"), ROW("テ", "デ"), ROW("ト", "ド"),
    ROW("ハ", "バ"), ROW("ヒ", "ビ"), ROW("フ", "ブ"), ROW("ヘ", "ベ"), ROW("ホ", "ボ"),
    ROW("ウ", "ヴ"), ROW("ヽ", "ヾ"),
    ROW("か", "が"), ROW("き", "ぎ"), ROW("く", "ぐ"), ROW("け", "げ"), ROW("こ", "ご"),
    ROW("さ", "ざ"), ROW("し", "じ"), ROW("す", "ず"), ROW("せ", "ぜ"), ROW("そ", "ぞ"),
    ROW("た", "だ"), ROW("ち", "ぢ"), ROW("つ", "づ"), ROW("て", "で"), ROW("と", "ど"),
    ROW("は", "ば"), ROW("ひ", "び"), ROW("ふ", "ぶ"), ROW("へ", "べ"), ROW("ほ", "ぼ"),
    ROW("ゝ", "ゞ"), ROW("゛", "゛"),
    {}};

constexpr PairAttrib NODAKUON_HANDAKUON_PAIR[] = {
    ROW("ﾊ", "ﾊﾟ"), ROW("ﾋ", "ﾋﾟ"), ROW("ﾌ", "ﾌﾟ"), ROW("ﾍ", "ﾍﾟ"), ROW("ﾎ", "ﾎﾟ"),
    ROW("ﾟ", "ﾟ"),
    ROW("ハ", "パ"), ROW("ヒ", "ピ"), ROW("フ", "プ"), ROW("ヘ", "ペ"), ROW("ホ", "ポ"),
    ROW("は", "ぱ"), ROW("ひ", "ぴ"), ROW("ふ", "ぷ"), ROW("へ", "ぺ"), ROW("ほ", "ぽ"),
    ROW("゜", "゜"),
    {}};

// The voiced kana first, as they begin with the unvoiced ones. ｳﾞ has no hiragana in the classes.
constexpr PairAttrib HANKATA_HIRAGANA_PAIR[] = {
    ROW("ｶﾞ", "が"), ROW("ｷﾞ", "ぎ"), ROW("ｸﾞ", "ぐ"), ROW("ｹﾞ", "げ"), ROW("ｺﾞ", "ご"),
    ROW("ｻﾞ", "ざ"), ROW("ｼﾞ", "じ"), ROW("ｽﾞ", "ず"), ROW("ｾﾞ", "ぜ"), ROW("ｿﾞ", "ぞ"),
    ROW("ﾀﾞ", "だ"), ROW("ﾁﾞ", "ぢ"), ROW("ﾂﾞ", "づ"), ROW("ﾃﾞ", "で"), ROW("ﾄﾞ", "ど"),
    ROW("ﾊﾞ", "ば"), ROW("ﾋﾞ", "び"), ROW("ﾌﾞ", "ぶ"), ROW("ﾍﾞ", "べ"), ROW("ﾎﾞ", "ぼ"),
    ROW("ﾞ", "゛"),
    ROW("ﾊﾟ", "ぱ"), ROW("ﾋﾟ", "ぴ"), ROW("ﾌﾟ", "ぷ"), ROW("ﾍﾟ", "ぺ"), ROW("ﾎﾟ", "ぽ"),
    ROW("ﾟ", "゜"),
    ROW("｡", "。"), ROW("｢", "「"), ROW("｣", "」"), ROW("､", "、"), ROW("･", "・"),
    ROW("ｱ", "あ"), ROW("ｲ", "い"), ROW("ｳ", "う"), ROW("ｴ", "え"), ROW("ｵ", "お"),
    ROW("ｶ", "か"), ROW("ｷ", "き"), ROW("ｸ", "く"), ROW("ｹ", "け"), ROW("ｺ", "こ"),
    ROW("ｻ", "さ"), ROW("ｼ", "し"), ROW("ｽ", "す"), ROW("ｾ", "せ"), ROW("ｿ", "そ"),
    ROW("ﾀ", "た"), ROW("ﾁ", "ち"), ROW("ﾂ", "つ"), ROW("ﾃ", "て"), ROW("ﾄ", "と"),
    ROW("ﾅ", "な"), ROW("ﾆ", "に"), ROW("ﾇ", "ぬ"), ROW("ﾈ", "ね"), ROW("ﾉ", "の"),
    ROW("ﾊ", "は"), ROW("ﾋ", "ひ"), ROW("ﾌ", "ふ"), ROW("ﾍ", "へ"), ROW("ﾎ", "ほ"),
    ROW("ﾏ", "ま"), ROW("ﾐ", "み"), ROW("ﾑ", "む"), ROW("ﾒ", "め"), ROW("ﾓ", "も"),
    ROW("ﾔ", "や"), ROW("ﾕ", "ゆ"), ROW("ﾖ", "よ"),
    ROW("ﾗ", "ら"), ROW("ﾘ", "り"), ROW("ﾙ", "る"), ROW("ﾚ", "れ"), ROW("ﾛ", "ろ"),
    ROW("ﾜ", "わ"), ROW("ｦ", "を"), ROW("ﾝ", "ん"),
    ROW("ｧ", "ぁ"), ROW("ｨ", "ぃ"), ROW("ｩ", "ぅ"), ROW("ｪ", "ぇ"), ROW("ｫ", "ぉ"),
    ROW("ｬ", "ゃ"), ROW("ｭ", "ゅ"), ROW("ｮ", "ょ"), ROW("ｯ", "っ"), ROW("ｰ", "ー"),
    {}};

// ヴ ヵ ヶ have no hiragana in the classes.
constexpr PairAttrib ZENKATA_HIRAGANA_PAIR[] = {
    ROW("ア", "あ"), ROW("イ", "い"), ROW("ウ", "う"), ROW("エ", "え"), ROW("オ", "お"),
    ROW("カ", "か"), ROW("キ", "き"), ROW("ク", "く"), ROW("ケ", "け"), ROW("コ", "こ"),
    ROW("サ", "さ"), ROW("シ", "し"), ROW("ス", "す"), ROW("セ", "せ"), ROW("ソ", "そ"),
    ROW("タ", "た"), ROW("チ", "ち"), ROW("ツ", "つ"), ROW("テ", "て"), ROW("ト", "と"),
    ROW("ナ", "な"), ROW("ニ", "に"), ROW("ヌ", "ぬ"), ROW("ネ", "ね"), ROW("ノ", "の"),
    ROW("ハ", "は"), ROW("ヒ", "ひ"), ROW("フ", "ふ"), ROW("ヘ", "へ"), ROW("ホ", "ほ"),
    ROW("マ", "ま"), ROW("ミ", "み"), ROW("ム", "む"), ROW("メ", "め"), ROW("モ", "も"),
    ROW("ヤ", "や"), ROW("ユ", "ゆ"), ROW("ヨ", "よ"),
    ROW("ラ", "ら"), ROW("リ", "り"), ROW("ル", "る"), ROW("レ", "れ"), ROW("ロ", "ろ"),
    ROW("ワ", "わ"), ROW("ヲ", "を"), ROW("ン", "ん"),
    ROW("ヰ", "ゐ"), ROW("ヱ", "ゑ"),
    ROW("ガ", "が"), ROW("ギ", "ぎ"), ROW("グ", "ぐ"), ROW("ゲ", "げ"), ROW("ゴ", "ご"),
    ROW("ザ", "ざ"), ROW("ジ", "じ"), ROW("ズ", "ず"), ROW("ゼ", "ぜ"), ROW("ゾ", "ぞ"),
    ROW("ダ", "だ"), ROW("ヂ", "ぢ"), ROW("ヅ", "づ"), ROW("デ", "で"), ROW("ド", "ど"),
    ROW("バ", "ば"), ROW("ビ", "び"), ROW("ブ", "ぶ"), ROW("ベ", "べ"), ROW("ボ", "ぼ"),
    ROW("パ", "ぱ"), ROW("ピ", "ぴ"), ROW("プ", "ぷ"), ROW("ペ", "ぺ"), ROW("ポ", "ぽ"),
    ROW("ァ", "ぁ"), ROW("ィ", "ぃ"), ROW("ゥ", "ぅ"), ROW("ェ", "ぇ"), ROW("ォ", "ぉ"),
    ROW("ャ", "ゃ"), ROW("ュ", "ゅ"), ROW("ョ", "ょ"), ROW("ッ", "っ"), ROW("ヮ", "ゎ"),
    ROW("ー", "ー"), ROW("ヽ", "ゝ"), ROW("ヾ", "ゞ"),
    {}};

#undef ROW
#undef TEXT
// clang-format on

}  // namespace utl
