/**
 * @file
 * radmschap: logs a user in with MS-CHAP and prints the outcome. With --builtin, as the first
 * argument, it computes the NT-Response itself.
 */
#include <cstdlib>

#include <lanyard/radius/methods.h>

#include "mschap_options.h"

int main(int argc, char *argv[]) {
    takeMschapOptions(argc, argv);
    return radMschapSampleMain(argc, argv) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
