#include "table.h"

#include <algorithm>
#include <cctype>

namespace lanyardctl {

std::string shown(const std::optional<std::string> &text) {
    std::string safe = text.value_or("(none)");
    std::replace_if(
        safe.begin(), safe.end(), [](unsigned char c) { return std::iscntrl(c) != 0; }, '?');
    return safe;
}

std::string asTable(const std::vector<Line> &lines) {
    std::vector<size_t> widths(lines.front().size());
    for (const Line &line : lines) {
        for (size_t i = 0; i < line.size(); ++i) {
            widths[i] = std::max(widths[i], line[i].size());
        }
    }
    std::string text;
    for (const Line &line : lines) {
        std::string row;
        for (size_t i = 0; i < line.size(); ++i) {
            row += line[i] + std::string(widths[i] + 2 - line[i].size(), ' ');
        }
        row.erase(row.find_last_not_of(' ') + 1);
        text += (text.empty() ? "" : "\n") + row;
    }
    return text;
}

}  // namespace lanyardctl
