// Text of files, taken apart.
#ifndef LANYARDCTL_WORDS_H
#define LANYARDCTL_WORDS_H

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace lanyardctl {

// The pieces between any number of separators, as strtok() has them.
inline std::vector<std::string> split(std::string_view text, const char *separators) {
    std::vector<std::string> parts;
    for (size_t at = text.find_first_not_of(separators); at != std::string_view::npos;) {
        const size_t end = std::min(text.find_first_of(separators, at), text.size());
        parts.emplace_back(text.substr(at, end - at));
        at = text.find_first_not_of(separators, end);
    }
    return parts;
}

inline bool startsWithDigit(std::string_view text) {
    return !text.empty() && text[0] >= '0' && text[0] <= '9';
}

inline bool isDigits(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

}  // namespace lanyardctl

#endif
