/**
 * @file
 * radmschap-portal: logs a user in with MS-CHAP, as a captive portal does, and prints the limits
 * that the server grants. With --builtin, as the first argument, it computes the NT-Response itself.
 */
#include <lanyard/radius/methods.h>

#include "mschap_options.h"
#include "portal.h"

int main(int argc, char *argv[]) {
    takeMschapOptions(argc, argv);
    return runPortal("radmschap-portal", radMschapSampleMainCaptivePortal, argc, argv);
}
