/**
 * @file
 * radauth: logs a user in with PAP and prints the outcome.
 */
#include <lanyard/radius/engine.h>
#include <lanyard/radius/methods.h>

#include "outcome.h"

int main(int argc, char *argv[]) {
    return exitStatus(radAuthSampleMain(argc, argv), RAD_CODE_ACCESS_ACCEPT);
}
