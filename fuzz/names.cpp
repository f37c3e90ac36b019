// Names of hosts without asking anybody: this machine's and dotted addresses are known.
#include <arpa/inet.h>
#include <cstring>
#include <netdb.h>
#include <unistd.h>

#include "fuzz/environment.h"

int gethostname(char *name, size_t len) noexcept {
    std::strncpy(name, "gateway", len);
    return 0;
}

int gethostbyname_r(const char *name, hostent *result_buf, char *buf, size_t buflen,
                    hostent **result, int *h_errnop) {
    struct Found {
        char *addresses[2];
        in_addr address;
    };
    lanyard::fuzz::require(buflen >= sizeof(Found), "there is room for an address");
    auto *found = reinterpret_cast<Found *>(buf);
    *found = {};
    found->addresses[0] = reinterpret_cast<char *>(&found->address);
    const char *dotted = std::strcmp(name, "gateway") == 0 ? "127.0.0.1" : name;
    const bool isKnown = inet_pton(AF_INET, dotted, &found->address) == 1;
    *result_buf = {.h_name = nullptr,
                   .h_aliases = nullptr,
                   .h_addrtype = AF_INET,
                   .h_length = sizeof(in_addr),
                   .h_addr_list = found->addresses};
    *result = isKnown ? result_buf : nullptr;
    *h_errnop = isKnown ? 0 : HOST_NOT_FOUND;
    return 0;
}
