/**
 * @file
 * radmschap: logs a user in with MS-CHAP and prints the outcome. With --builtin, as the first
 * argument, it computes the NT-Response itself.
 */
#include <lanyard/radius/engine.h>
#include <lanyard/radius/methods.h>

#include "mschap_options.h"
#include "outcome.h"

int main(int argc, char *argv[]) {
    takeMschapOptions(argc, argv);
    return exitStatus(radMschapSampleMain(argc, argv), RAD_CODE_ACCESS_ACCEPT);
}
