// The library's version and default path.
#include <cstdio>

#include <lanyard/radius/frame.h>
#include <palcore.h>

int radLibVersion(void) {
    palFilePrintf(stdout, "%s %s\n", "Lanyard RADIUS", LANYARD_VERSION);
    return 0;
}

const char *radLibDefConf(void) {
    return "/var/radius.conf";
}
