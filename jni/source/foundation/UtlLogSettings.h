// Internal. Filter levels that the user of the process asks for: "*=error,NET=4".

#ifndef UTL_LOG_SETTINGS_H
#define UTL_LOG_SETTINGS_H

#include <cstddef>
#include <string_view>

namespace utl {

// Keeps the text they come from and reads it for each type, which may be registered later.
class LogSettings {
public:
    static constexpr int NO_LEVEL = -1;
    static constexpr std::size_t MAX_LENGTH = 255;

    constexpr LogSettings() = default;

    // Stores in `ignored` what of the text is no pair of a name and a level; all of one that is
    // too long, as far as there is room.
    void set(std::string_view text, char (&ignored)[MAX_LENGTH + 1]);

    // For the type that was registered under `typeName`; NO_LEVEL where nothing is asked for.
    int levelFor(std::string_view typeName) const;

private:
    char mText[MAX_LENGTH + 1] = {};
};

}  // namespace utl

#endif  // UTL_LOG_SETTINGS_H
