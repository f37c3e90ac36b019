// The relay in the partition that the library makes for itself; radeapd brings a larger one.
#include <lanyard/radius/eap.h>

int main(int argc, char *argv[]) {
    return radEapMain(argc, argv) == 0 ? 0 : 1;
}
