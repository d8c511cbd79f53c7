#include "foundation/UtlLogSettings.h"

#include "foundation/UtlLogTypes.h"

namespace utl {

namespace {

constexpr std::string_view ANY_TYPE = "*";
constexpr std::string_view LEVEL_WORDS[] = {"none", "error", "info", "detail", "debug"};
constexpr std::string_view LEVEL_DIGITS = "01234";

std::string_view trimmed(std::string_view text, char const* characters) {
    std::size_t const begin = text.find_first_not_of(characters);
    return begin == text.npos ? std::string_view()
                              : text.substr(begin, text.find_last_not_of(characters) + 1 - begin);
}

// Types are registered with what sets their names off in a line: "<NET> ".
std::string_view bareName(std::string_view name) {
    return trimmed(name, " <>");
}

int levelOf(std::string_view text) {
    for (int level = 0; level <= LOWEST_LOG_LEVEL; ++level) {
        if (text == LEVEL_WORDS[level] || text == LEVEL_DIGITS.substr(level, 1)) {
            return level;
        }
    }
    return LogSettings::NO_LEVEL;
}

struct Setting {
    std::string_view name;
    int level;  // NO_LEVEL for a piece of text that is no setting
};

Setting settingOf(std::string_view piece) {
    std::size_t const sign = piece.find('=');
    std::string_view const name = bareName(piece.substr(0, sign));
    bool const isPair = sign != piece.npos && !name.empty();
    return {name, isPair ? levelOf(trimmed(piece.substr(sign + 1), " ")) : LogSettings::NO_LEVEL};
}

template <typename Take>
void forEachPiece(std::string_view text, Take take) {
    while (!text.empty()) {
        std::string_view const piece = text.substr(0, text.find(','));
        take(piece);
        text.remove_prefix(piece.size() < text.size() ? piece.size() + 1 : piece.size());
    }
}

}  // namespace

void LogSettings::set(std::string_view text, char (&ignored)[MAX_LENGTH + 1]) {
    bool const fits = text.size() <= MAX_LENGTH;
    mText[fits ? text.copy(mText, MAX_LENGTH) : 0] = '\0';
    std::size_t length = 0;
    forEachPiece(text.substr(0, MAX_LENGTH), [&](std::string_view piece) {
        if (!fits || settingOf(piece).level == NO_LEVEL) {
            ignored[length] = ',';
            length += length != 0 ? 1 : 0;
            length += piece.copy(ignored + length, MAX_LENGTH - length);
        }
    });
    ignored[length] = '\0';
}

int LogSettings::levelFor(std::string_view typeName) const {
    std::string_view const name = bareName(typeName);
    int levelForAny = NO_LEVEL;
    int level = NO_LEVEL;
    forEachPiece(mText, [&](std::string_view piece) {
        Setting const setting = settingOf(piece);
        if (setting.name == name) {
            level = setting.level != NO_LEVEL ? setting.level : level;
        } else if (setting.name == ANY_TYPE) {
            levelForAny = setting.level != NO_LEVEL ? setting.level : levelForAny;
        }
    });
    return level != NO_LEVEL ? level : levelForAny;
}

}  // namespace utl
