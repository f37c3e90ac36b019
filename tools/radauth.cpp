/**
 * @file
 * radauth: logs a user in with PAP and prints the outcome.
 */
#include <cstdlib>

#include <lanyard/radius/methods.h>

int main(int argc, char *argv[]) {
    return radAuthSampleMain(argc, argv) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
