// Text for a terminal.
#ifndef LANYARDCTL_TABLE_H
#define LANYARDCTL_TABLE_H

#include <concepts>
#include <optional>
#include <string>
#include <vector>

namespace lanyardctl {

// Text of others for a terminal: control characters, what is no UTF-8, and what changes the direction of text are
// shown as '?'.
std::string shown(const std::optional<std::string> &text);

// "1 server", "2 servers".
template <std::integral Count>
std::string counted(Count count, const char *noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

using Line = std::vector<std::string>;

// Lines of equally many fields, of which the first are the headings, with each column as wide as it
// has to be. No newline at the end.
std::string asTable(const std::vector<Line> &lines);

// Words after a heading, in lines of at most 100 characters that begin below its end.
std::string wrapped(const std::string &heading, const std::string &words);

}  // namespace lanyardctl

#endif
