/**
 * @file
 * radmschap: logs a user in with MS-CHAP and prints the outcome.
 */
#include <cstdlib>

#include <lanyard/radius/methods.h>

int main(int argc, char *argv[]) {
    return radMschapSampleMain(argc, argv) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
