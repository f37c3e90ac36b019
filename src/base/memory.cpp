// The library's memory partition. One that the program brings is never destroyed here.
#include <lanyard/radius/frame.h>
#include <palcore.h>

uint32_t radMemPartId = 0;

namespace {

bool radMemPartOwned = true;

}  // namespace

int radiusPartIdInit(uint32_t partition) {
    radMemPartId = partition;
    if (partition) {
        radMemPartOwned = false;
    }
    return 0;
}

int radMemInit(uint32_t size) {
    if (radMemPartId) {
        return 0;
    }
    radMemPartId = palMemPartCreate("radiusPartition", nullptr, size);
    return radMemPartId ? 0 : -1;
}

int radMemCleanUp(void) {
    if (radMemPartOwned && radMemPartId) {
        palMemPartDestroy(radMemPartId);
        radMemPartId = 0;
    }
    return 0;
}
