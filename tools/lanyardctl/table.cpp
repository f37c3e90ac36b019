#include "table.h"

#include <algorithm>
#include <sstream>
#include <string_view>

#include "platform/harmless_text.h"

namespace lanyardctl {

namespace {

// Places that a text takes: colours take none, and characters of UTF-8 one.
size_t widthOf(const std::string &text) {
    size_t width = 0;
    bool inColour = false;
    for (const char character : text) {
        inColour = inColour || character == '\033';
        width += size_t{!inColour && (static_cast<unsigned char>(character) & 0xc0U) != 0x80};
        inColour = inColour && character != 'm';
    }
    return width;
}

}  // namespace

std::string shown(const std::optional<std::string> &text) {
    const std::string all = text.value_or("(none)");
    std::string safe;
    for (std::string_view left = all; !left.empty();) {
        const size_t length = lanyard::port::harmlessLength(left);
        safe += length != 0 ? left.substr(0, length) : "?";
        left.remove_prefix(std::max<size_t>(length, 1));
    }
    return safe;
}

std::string asTable(const std::vector<Line> &lines) {
    std::vector<size_t> widths(lines.front().size());
    for (const Line &line : lines) {
        for (size_t i = 0; i < line.size(); ++i) {
            widths[i] = std::max(widths[i], widthOf(line[i]));
        }
    }
    std::string text;
    for (const Line &line : lines) {
        std::string row;
        for (size_t i = 0; i < line.size(); ++i) {
            row += line[i] + std::string(widths[i] + 2 - widthOf(line[i]), ' ');
        }
        row.erase(row.find_last_not_of(' ') + 1);
        text += (text.empty() ? "" : "\n") + row;
    }
    return text;
}

std::string wrapped(const std::string &heading, const std::string &words) {
    constexpr size_t kWidth = 100;
    std::string text;
    std::string line = heading;
    std::istringstream stream(words);
    for (std::string word; stream >> word;) {
        if (line.size() > heading.size() && line.size() + word.size() > kWidth) {
            text += line.substr(0, line.size() - 1) + "\n";
            line.assign(heading.size(), ' ');
        }
        line += word + " ";
    }
    return text + line.substr(0, line.size() - 1);
}

}  // namespace lanyardctl
