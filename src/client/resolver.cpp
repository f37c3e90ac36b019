// Host names to IPv4 addresses: the system's resolver first, then the device's own hosts file.
#include "client/resolver.h"

#include <arpa/inet.h>
#include <array>
#include <cctype>
#include <climits>
#include <cstdio>
#include <cstring>
#include <netdb.h>
#include <span>
#include <string_view>
#include <unistd.h>

#include <lanyard/radius/engine.h>
#include <palcore.h>

#include "base/clock.h"
#include "base/log.h"

namespace lanyard {
namespace {

constexpr const char *kHostsFile = "/var/hosts";
constexpr uint32_t kNotFound = 0;

// How long this device's own address is kept.
constexpr int64_t kOwnAddressLife = kSecond;

using HostName = std::array<char, 256>;

struct OwnAddress {
    std::array<char, HOST_NAME_MAX + 1> hostName;
    uint32_t address;
    int64_t expiry;
};

constinit thread_local OwnAddress kept{};

bool findInResolver(const char *name, uint32_t &address) {
    std::array<char, 8192> buffer;
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

struct Found {
    uint32_t address = kNotFound;
    bool byResolver = false;  // which leaves no message
};

Found findHost(const char *name) {
    Found found;
    if (readDotted(name, found.address) || findInResolver(name, found.address)) {
        found.byResolver = true;
        return found;
    }
    constexpr const char *kTag = "radGetIPByName";
    radLogAs(kTag, kLogError, "radGetIPByName: couldn't resolve hostname: %s\n", name);
    FILE *file = palFileOpen(kHostsFile, "r");
    if (!file) {
        // A missing file is created, empty.
        file = palFileOpen(kHostsFile, "w");
        if (!file) {
            radLogAs(kTag, kLogError, "failed to open %s\n", kHostsFile);
            return {.address = INADDR_NONE};
        }
    }
    found.address = addressFromHostsFile(file, name);
    palFileClose(file);
    return found;
}

bool readHostName(HostName &name) {
    name = {};
    if (gethostname(name.data(), name.size() - 1) != 0) {
        radLogAs("radGetHostIP", kLogError, "radGetHostIP: couldn't get hostname\n");
        return false;
    }
    return true;
}

Found findThisHost(const HostName &name) {
    const Found found = findHost(name.data());
    if (found.address == kNotFound) {
        radLogAs("radGetHostIP", kLogError, "radGetHostIP: couldn't get host IP address\n");
    }
    return found;
}

}  // namespace

bool readDotted(const char *text, uint32_t &address) {
    if (inet_pton(AF_INET, text, &address) == 1) {
        return true;
    }
    const std::string_view name(text);
    in_addr read{};
    if (name.find_first_not_of("0123456789.") != std::string_view::npos || name.ends_with('.') ||
        inet_aton(text, &read) == 0) {
        return false;
    }
    address = read.s_addr;
    return true;
}

uint32_t ownAddress() {
    HostName name;
    if (!readHostName(name)) {
        return kNotFound;
    }
    const int64_t now = monotonicMicroseconds();
    if (now < kept.expiry && std::strcmp(name.data(), kept.hostName.data()) == 0) {
        return kept.address;
    }
    const Found found = findThisHost(name);
    const size_t length = std::strlen(name.data());
    // What is known only to the hosts file is complained of at each request.
    if (found.byResolver && found.address != kNotFound && length < kept.hostName.size()) {
        std::memcpy(kept.hostName.data(), name.data(), length + 1);
        kept.address = found.address;
        kept.expiry = now + kOwnAddressLife;
    }
    return found.address;
}

}  // namespace lanyard

using namespace lanyard;

uint32_t radGetIPByName(const char *name) {
    return name ? findHost(name).address : kNotFound;
}

uint32_t radGetHostIP(void) {
    HostName name;
    return readHostName(name) ? findThisHost(name).address : kNotFound;
}
