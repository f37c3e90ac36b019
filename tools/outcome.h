/**
 * @file
 * What the programs that make requests share: whether one succeeded, and where it failed.
 */
#ifndef LANYARD_TOOLS_OUTCOME_H
#define LANYARD_TOOLS_OUTCOME_H

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include <lanyard/radius/error.h>

// Whether an entry point returned success and the server's reply says so too. MS-CHAPv2 also
// returns 0 for some refusals.
inline bool succeeded(int result, int32_t successCode) {
    const RadLastError *last = radLastError();
    return result == 0 && last != nullptr && last->code == successCode;
}

// Prints a line for each server that was asked in vain.
inline void printReasons(int32_t successCode) {
    for (int i = 0; const RadLastError *error = radLastErrorAt(i); i++) {
        if (error->code != successCode) {
            std::array<char, RAD_LAST_ERROR_TEXT_SIZE> text{};
            radLastErrorText(error, text.data(), text.size());
            (void)std::fprintf(stderr, "  %s\n", text.data());
        }
    }
}

// The exit status for what an entry point returned; the reasons of a failure are printed.
inline int exitStatus(int result, int32_t successCode) {
    if (succeeded(result, successCode)) {
        return EXIT_SUCCESS;
    }
    printReasons(successCode);
    return EXIT_FAILURE;
}

#endif
