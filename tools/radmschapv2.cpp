/**
 * @file
 * radmschapv2: logs a user in with MS-CHAPv2 and prints the outcome. --standard-sha1 is what
 * standard servers need; with --builtin it computes the NT-Response itself. Both stand in front of
 * the other arguments.
 */
#include <lanyard/radius/engine.h>
#include <lanyard/radius/methods.h>

#include "mschap_options.h"
#include "outcome.h"

int main(int argc, char *argv[]) {
    takeMschapv2Options(argc, argv);
    return exitStatus(radMschapv2SampleMain(argc, argv), RAD_CODE_ACCESS_ACCEPT);
}
