// Host names to IPv4 addresses: the system's resolver first, then the device's own hosts file.
#include <arpa/inet.h>
#include <array>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <netdb.h>
#include <span>
#include <unistd.h>

#include <lanyard/radius/engine.h>
#include <palcore.h>

#include "base/log.h"

namespace lanyard {
namespace {

constexpr const char *kHostsFile = "/var/hosts";
constexpr uint32_t kNotFound = 0;

bool findInResolver(const char *name, uint32_t &address) {
    std::array<char, 8192> buffer{};
    hostent entry{};
    hostent *found = nullptr;
    int resolverError = 0;
    if (gethostbyname_r(name, &entry, buffer.data(), buffer.size(), &found, &resolverError) != 0 ||
        !found || found->h_addrtype != AF_INET || !found->h_addr_list[0]) {
        return false;
    }
    std::memcpy(&address, found->h_addr_list[0], sizeof(address));
    return true;
}

// Reads the next word; false at the end of the file. One that does not fit reads as the empty word,
// which matches nothing.
bool readWord(FILE *file, std::span<char> word) {
    int character = std::fgetc(file);
    while (std::isspace(character)) {
        character = std::fgetc(file);
    }
    if (character == EOF) {
        return false;
    }
    size_t length = 0;
    for (; character != EOF && !std::isspace(character); character = std::fgetc(file)) {
        if (length < word.size()) {
            word[length++] = static_cast<char>(character);
        }
    }
    word[length < word.size() ? length : 0] = '\0';
    return true;
}

// Looks for a name among the file's words, which are address and name in turn.
uint32_t addressFromHostsFile(FILE *file, const char *name) {
    std::array<char, 16> address{};
    std::array<char, 32> host{};
    while (readWord(file, address) && readWord(file, host)) {
        if (address[0] && host[0] && std::strcmp(host.data(), name) == 0) {
            return inet_addr(address.data());
        }
    }
    return kNotFound;
}

}  // namespace
}  // namespace lanyard

using namespace lanyard;

uint32_t radGetIPByName(const char *name) {
    if (!name) {
        return kNotFound;
    }
    uint32_t address = kNotFound;
    if (findInResolver(name, address)) {
        return address;
    }
    radLog(kLogError, "radGetIPByName: couldn't resolve hostname: %s\n", name);
    FILE *file = palFileOpen(kHostsFile, "r");
    if (!file) {
        // A missing file is created, empty.
        file = palFileOpen(kHostsFile, "w");
        if (!file) {
            radLog(kLogError, "failed to open %s\n", kHostsFile);
            return INADDR_NONE;
        }
    }
    address = addressFromHostsFile(file, name);
    palFileClose(file);
    return address;
}

uint32_t radGetHostIP(void) {
    std::array<char, 256> name{};
    if (gethostname(name.data(), name.size() - 1) != 0) {
        radLog(kLogError, "radGetHostIP: couldn't get hostname\n");
        return kNotFound;
    }
    const uint32_t address = radGetIPByName(name.data());
    if (address == kNotFound) {
        radLog(kLogError, "radGetHostIP: couldn't get host IP address\n");
    }
    return address;
}
