/**
 * @file
 * radchap: logs a user in with CHAP and prints the outcome.
 */
#include <lanyard/radius/engine.h>
#include <lanyard/radius/methods.h>

#include "outcome.h"

int main(int argc, char *argv[]) {
    return exitStatus(radChapSampleMain(argc, argv), RAD_CODE_ACCESS_ACCEPT);
}
