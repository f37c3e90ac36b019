/**
 * @file
 * radacct: sends one accounting record and prints the outcome.
 */
#include <cstdlib>

#include <lanyard/radius/methods.h>

int main(int argc, char *argv[]) {
    return radAcctSampleMain(argc, argv) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
