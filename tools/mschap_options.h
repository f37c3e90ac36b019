/**
 * @file
 * The options that the programs of MS-CHAP have beyond those of their entry points. They stand in
 * front of these, in any order and each once.
 */
#ifndef LANYARD_TOOLS_MSCHAP_OPTIONS_H
#define LANYARD_TOOLS_MSCHAP_OPTIONS_H

#include <array>
#include <cstring>
#include <span>

#include <lanyard/radius/frame.h>

struct LibraryOption {
    const char *argument;
    int option;
};

inline constexpr LibraryOption kBuiltin{"--builtin", RAD_OPTION_BUILTIN_NT_RESPONSE};
inline constexpr LibraryOption kStandardSha1{"--standard-sha1", RAD_OPTION_STANDARD_SHA1};

// Takes one of the options off the command line and sets what it stands for. False when none of
// them comes next that is not set already.
inline bool takeLibraryOption(std::span<const LibraryOption> options, int &argc, char **&argv) {
    for (const LibraryOption &entry : options) {
        if (argc > 1 && std::strcmp(argv[1], entry.argument) == 0 &&
            radOptionGet(entry.option) == 0) {
            radOptionSet(entry.option, 1);
            argv[1] = argv[0];
            ++argv;
            --argc;
            return true;
        }
    }
    return false;
}

inline void takeMschapOptions(int &argc, char **&argv) {
    takeLibraryOption(std::array{kBuiltin}, argc, argv);
}

inline void takeMschapv2Options(int &argc, char **&argv) {
    while (takeLibraryOption(std::array{kBuiltin, kStandardSha1}, argc, argv)) {
    }
}

#endif
