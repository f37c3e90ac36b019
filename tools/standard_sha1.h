/**
 * @file
 * The one option that the MS-CHAPv2 programs have beyond those of their entry points.
 */
#ifndef LANYARD_TOOLS_STANDARD_SHA1_H
#define LANYARD_TOOLS_STANDARD_SHA1_H

#include <cstring>

#include <lanyard/radius/frame.h>

// Takes a leading --standard-sha1 off the command line and sets the option that it stands for.
inline void takeStandardSha1(int &argc, char **&argv) {
    if (argc > 1 && std::strcmp(argv[1], "--standard-sha1") == 0) {
        radOptionSet(RAD_OPTION_STANDARD_SHA1, 1);
        argv[1] = argv[0];
        ++argv;
        --argc;
    }
}

#endif
