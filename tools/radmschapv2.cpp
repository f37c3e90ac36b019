/**
 * @file
 * radmschapv2: logs a user in with MS-CHAPv2 and prints the outcome. --standard-sha1, as the first
 * argument, is what standard servers need.
 */
#include <cstdlib>

#include <lanyard/radius/methods.h>

#include "standard_sha1.h"

int main(int argc, char *argv[]) {
    takeStandardSha1(argc, argv);
    return radMschapv2SampleMain(argc, argv) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
