/**
 * @file
 * radmschapv2-portal: logs a user in with MS-CHAPv2, as a captive portal does, and prints the
 * limits that the server grants. --standard-sha1 is what standard servers need; with --builtin it
 * computes the NT-Response itself. Both stand in front of the other arguments.
 */
#include <lanyard/radius/methods.h>

#include "mschap_options.h"
#include "portal.h"

int main(int argc, char *argv[]) {
    takeMschapv2Options(argc, argv);
    return runPortal("radmschapv2-portal", radMschapv2SampleMainCaptivePortal, argc, argv);
}
