// A stranger's program: all that it needs is installed.
#include <stdio.h>

#include <lanyard/radius.h>

int main(void) {
    if (radMemInit(RAD_PARTITION_SIZE) != 0 || radDictLoad(NULL) != 0) {
        return 1;
    }
    puts(radDictGetAttr(RAD_ATTR_USER_NAME)->name);
    radLibExit();
    return 0;
}
