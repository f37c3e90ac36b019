/**
 * @file
 * radmschapv2-portal: logs a user in with MS-CHAPv2, as a captive portal does, and prints the
 * limits that the server grants. --standard-sha1, as the first argument, is what standard servers
 * need.
 */
#include <lanyard/radius/methods.h>

#include "portal.h"
#include "standard_sha1.h"

int main(int argc, char *argv[]) {
    takeStandardSha1(argc, argv);
    return runPortal("radmschapv2-portal", radMschapv2SampleMainCaptivePortal, argc, argv);
}
