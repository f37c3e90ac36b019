/**
 * @file
 * A C program over the public header: it compiles, links, and finds the library where it left it.
 */
#include <stdio.h>
#include <string.h>

#include <lanyard/radius.h>

static int failures;

static void expect(int holds, const char *what) {
    if (!holds) {
        fprintf(stderr, "not as declared: %s\n", what);
        failures++;
    }
}

int main(void) {
    RadPair *list = NULL;
    RadLoop *loop = NULL;
    RadServerStatus status;
    const uint32_t mtu = 1400;

    expect(strcmp(radLibDefConf(), "/var/radius.conf") == 0, "radLibDefConf");
    expect(sizeof(RadPacket) == RAD_HEADER_SIZE, "RadPacket lies over a packet header");
    expect(radMemPartId == 0, "no partition before the start");

    expect(radLibInit(NULL) == 0, "radLibInit");
    expect(radMemPartId != 0, "a partition after the start");
    expect(radDictLoad(NULL) == 0, "radDictLoad");
    expect(radPairAdd(&list, RAD_ATTR_FRAMED_MTU, &mtu, 0) == list && list != NULL, "radPairAdd");
    expect(radPairGet(list, RAD_ATTR_FRAMED_MTU) == list, "radPairGet");
    expect(list != NULL && list->numValue == mtu, "RadPair");
    radPairListFree(list);
    loop = radLoopCreate();
    expect(radLoopDescriptor(loop) >= 0, "radLoopDescriptor");
    expect(radLoopRun(loop, 0) == 0, "radLoopRun");
    radLoopDestroy(loop);
    expect(radServerStatusAt(0, &status) == -1, "radServerStatusAt");
    expect(radLibExit() == 0, "radLibExit");
    expect(radMemPartId == 0, "no partition after the end");
    return failures == 0 ? 0 : 1;
}
