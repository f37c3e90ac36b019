/**
 * @file
 * radchap: logs a user in with CHAP and prints the outcome.
 */
#include <cstdlib>

#include <lanyard/radius/methods.h>

int main(int argc, char *argv[]) {
    return radChapSampleMain(argc, argv) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
