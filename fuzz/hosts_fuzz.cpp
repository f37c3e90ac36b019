// A name, and after its NUL a hosts file; the address is compared with that of another reading.
#include <algorithm>
#include <arpa/inet.h>
#include <cctype>
#include <cstring>
#include <string>

#include <lanyard/radius/engine.h>

#include "fuzz/files.h"

namespace {

using namespace lanyard::fuzz;

// Address and name in turn. A word that is too long is none.
constexpr size_t kAddressMax = 15;
constexpr size_t kNameMax = 31;

std::vector<std::string> wordsOf(ByteView file) {
    std::vector<std::string> words;
    bool inWord = false;
    for (const uint8_t byte : file) {
        const bool isSpace = std::isspace(byte) != 0;
        if (!isSpace) {
            if (!inWord) {
                words.emplace_back();
            }
            words.back().push_back(static_cast<char>(byte));
        }
        inWord = !isSpace;
    }
    return words;
}

// A name of numbers and dots, of which there may be less than four.
bool readNumbers(const std::string &name, in_addr &address) {
    return name.find_first_not_of("0123456789.") == std::string::npos && !name.ends_with('.') &&
           inet_aton(name.c_str(), &address) != 0;
}

uint32_t expectedAddress(ByteView file, const std::string &name) {
    const std::vector<std::string> words = wordsOf(file);
    for (size_t i = 0; i + 1 < words.size(); i += 2) {
        const std::string &address = words[i];
        const std::string &host = words[i + 1];
        // Both are read as texts, which end at a NUL.
        if (address.size() <= kAddressMax && address[0] != '\0' && host.size() <= kNameMax &&
            host[0] != '\0' && std::strcmp(name.c_str(), host.c_str()) == 0) {
            return inet_addr(address.c_str());
        }
    }
    return 0;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::vector<char> text = textFrom(data, size);
    const std::string name = text.data();
    const size_t nameSize = std::min(size, name.size() + 1);
    fileContent.assign(data + nameSize, data + size);
    if (name == "gateway") {
        return 0;
    }

    const size_t before = liveBlocks();
    in_addr dotted{};
    const uint32_t expected = readNumbers(name, dotted) ? dotted.s_addr
                              : fileContent.empty()     ? INADDR_NONE
                                                        : expectedAddress(fileContent, name);
    require(radGetIPByName(text.data()) == expected, "the address is the name's or the file's");
    require(liveBlocks() == before, "every block is freed");
    return 0;
}
