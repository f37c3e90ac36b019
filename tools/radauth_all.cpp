/**
 * @file
 * radauth-all: asks every configured server for one user and prints what each of them says.
 */
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/engine.h>
#include <lanyard/radius/methods.h>

#include "outcome.h"

namespace {

// No code of a packet and no result of the library.
constexpr int32_t kNotAsked = INT32_MIN;

void printResult(int number, const RadServer &server, int32_t result) {
    std::printf("%d %s:%u ", number, server.host, unsigned{server.port});
    switch (result) {
        case kNotAsked:
            std::puts("not asked");
            break;
        case -1:
            std::puts("no valid reply");
            break;
        case RAD_CODE_ACCESS_ACCEPT:
            std::puts("Access-Accept");
            break;
        case RAD_CODE_ACCESS_REJECT:
            std::puts("Access-Reject");
            break;
        case RAD_CODE_ACCESS_CHALLENGE:
            std::puts("Access-Challenge");
            break;
        default:
            std::printf("reply with code %d\n", result);
            break;
    }
}

}  // namespace

int main(int argc, char *argv[]) {
    std::array<int32_t, RAD_SERVERS_MAX> results;
    results.fill(kNotAsked);
    const int result = radAuthSampleMainCheckAllServer(argc, argv, results.data());

    if (const auto *servers = static_cast<const RadServer *>(radConfGet(RAD_CONF_AUTH_SERVERS))) {
        const int count = std::min(radConfGetNumServers(RAD_SERVER_AUTH), RAD_SERVERS_MAX);
        int number = 0;
        for (int slot = 0; slot < RAD_SERVERS_MAX && number < count; slot++) {
            if (servers[slot].host != nullptr) {
                printResult(number + 1, servers[slot], results[static_cast<size_t>(number)]);
                number++;
            }
        }
    }

    // The entry point gives its reasons at level 128 only, which nobody sees by default.
    if (result != 0 && std::count(results.begin(), results.end(), kNotAsked) == RAD_SERVERS_MAX) {
        (void)std::fprintf(
            stderr,
            "radauth-all: no server was asked; check the arguments and the configuration file\n"
            "Usage: radauth-all [-v] [ -f confFile] <username> <password>\n"
            "User names have at most %d characters, passwords at most %d.\n",
            RAD_USER_NAME_MAX, RAD_PASSWORD_MAX);
    }
    return exitStatus(result, RAD_CODE_ACCESS_ACCEPT);
}
