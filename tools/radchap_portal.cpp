/**
 * @file
 * radchap-portal: logs a user in with CHAP, as a captive portal does, and prints the limits that
 * the server grants.
 */
#include <lanyard/radius/methods.h>

#include "portal.h"

int main(int argc, char *argv[]) {
    return runPortal("radchap-portal", radChapSampleMainCaptivePortal, argc, argv);
}
