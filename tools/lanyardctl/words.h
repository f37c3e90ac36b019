// Text of files, taken apart.
#ifndef LANYARDCTL_WORDS_H
#define LANYARDCTL_WORDS_H

#include <algorithm>
#include <charconv>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
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

// The number that the whole text is; none where it is none, or is too large.
template <typename Number>
std::optional<Number> toNumber(std::string_view text, int base = 10) {
    Number number = 0;
    const char *end = text.data() + text.size();
    const auto [last, error] = std::from_chars(text.data(), end, number, base);
    return error == std::errc() && last == end ? std::optional(number) : std::nullopt;
}

inline bool isDigits(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

}  // namespace lanyardctl

#endif
