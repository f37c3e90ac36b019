/**
 * @file
 * What the captive-portal programs share: they log a user in and print the limits that the server
 * grants.
 */
#ifndef LANYARD_TOOLS_PORTAL_H
#define LANYARD_TOOLS_PORTAL_H

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include <lanyard/radius/engine.h>

#include "outcome.h"

// Longer than any limit that a reply can carry, as unsigned and as int.
constexpr uint32_t kNotLimited = INT32_MAX;

inline void printLimit(const char *what, uint32_t minutes) {
    if (minutes == kNotLimited) {
        std::printf("%s: not limited\n", what);
    } else {
        std::printf("%s: %u %s\n", what, minutes, minutes == 1 ? "minute" : "minutes");
    }
}

// Runs one captive-portal entry point and prints what it yields; the program's exit status.
template <typename Minutes>
int runPortal(const char *program, int (*entryPoint)(int, char *[], Minutes *, Minutes *), int argc,
              char *argv[]) {
    auto idleMinutes = static_cast<Minutes>(kNotLimited);
    auto sessionMinutes = static_cast<Minutes>(kNotLimited);
    const int result = entryPoint(argc, argv, &idleMinutes, &sessionMinutes);
    if (!succeeded(result, RAD_CODE_ACCESS_ACCEPT)) {
        std::fprintf(stderr, "%s: the user is not let in\n", program);
        printReasons(RAD_CODE_ACCESS_ACCEPT);
        return EXIT_FAILURE;
    }
    std::puts("The user is let in.");
    printLimit("Idle", static_cast<uint32_t>(idleMinutes));
    printLimit("Session", static_cast<uint32_t>(sessionMinutes));
    return EXIT_SUCCESS;
}

#endif
