/**
 * @file
 * radmschap-portal: logs a user in with MS-CHAP, as a captive portal does, and prints the limits
 * that the server grants.
 */
#include <lanyard/radius/methods.h>

#include "portal.h"

int main(int argc, char *argv[]) {
    return runPortal("radmschap-portal", radMschapSampleMainCaptivePortal, argc, argv);
}
