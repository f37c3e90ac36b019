// Packets in text.
#include <algorithm>
#include <optional>
#include <sstream>

#include "captured.h"
#include "words.h"

namespace lanyardctl {

namespace {

bool isHex(const std::string &word) {
    return !word.empty() && word.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
}

void append(Bytes &bytes, const std::string &digits) {
    for (size_t i = 0; i + 1 < digits.size(); i += 2) {
        bytes.push_back(static_cast<uint8_t>(std::stoi(digits.substr(i, 2), nullptr, 16)));
    }
}

// "0010", "0x0010:", "00000010": what a dump has in front of its bytes. It says how many came before,
// which tells it from bytes.
bool isOffset(std::string word, size_t bytesBefore) {
    const bool hasColon = word.ends_with(':');
    if (hasColon) {
        word.pop_back();
    }
    if (word.starts_with("0x")) {
        word.erase(0, 2);
    }
    return isHex(word) && word.size() >= 4 && word.size() <= 8 &&
           (hasColon || std::stoul(word, nullptr, 16) == bytesBefore);
}

// The bytes of a line after those before it; none for another line. After the bytes of a dump, 16 at most, may stand
// its characters. Those of a last line that look like digits are more bytes than the packet's length says, and do
// no harm.
std::optional<Bytes> bytesOf(std::string line, size_t bytesBefore) {
    line.resize(std::min(line.find('|'), line.size()));
    const std::vector<std::string> words = split(line, " \t\r\v\f");
    const bool hasOffset = words.size() > 1 && isOffset(words[0], bytesBefore);
    Bytes bytes;
    for (size_t i = hasOffset ? 1 : 0; i < words.size(); ++i) {
        const bool isFull = hasOffset && bytes.size() >= 16;
        if (isFull || !isHex(words[i]) || words[i].size() % 2 != 0) {
            if (!hasOffset) {
                return std::nullopt;
            }
            break;
        }
        append(bytes, words[i]);
    }
    return bytes.empty() ? std::nullopt : std::optional(bytes);
}

}  // namespace

std::vector<Captured> packetsInText(const std::string &text) {
    std::vector<Captured> packets;
    Captured open;
    std::istringstream lines(text);
    int number = 0;
    const auto close = [&] {
        if (!open.bytes.empty()) {
            packets.push_back(open);
        }
        open = {};
    };
    for (std::string line; std::getline(lines, line);) {
        ++number;
        const auto bytes = bytesOf(line, open.bytes.size());
        if (!bytes) {
            close();
            continue;
        }
        if (open.bytes.empty()) {
            open.title = "line " + std::to_string(number);
        }
        open.bytes.insert(open.bytes.end(), bytes->begin(), bytes->end());
    }
    close();
    return packets;
}

}  // namespace lanyardctl
