/**
 * @file
 * radmschapv2: logs a user in with MS-CHAPv2 and prints the outcome. --standard-sha1 is what
 * standard servers need; with --builtin it computes the NT-Response itself. Both stand in front of
 * the other arguments.
 */
#include <cstdlib>

#include <lanyard/radius/methods.h>

#include "mschap_options.h"

int main(int argc, char *argv[]) {
    takeMschapv2Options(argc, argv);
    return radMschapv2SampleMain(argc, argv) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
