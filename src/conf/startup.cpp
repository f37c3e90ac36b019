// Start-up and shutdown.
#include <ciph.h>
#include <lanyard/radius/conf.h>
#include <lanyard/radius/frame.h>

namespace {

bool radLibInitDone = false;

}  // namespace

int radCryptoInit(void) {
    ciphMD5Init();
    return 0;
}

int radLibInit(const char *confFile) {
    if (radLibInitDone) {
        return 0;
    }
    // Without a partition memory comes from the process heap.
    radMemInit(RAD_PARTITION_SIZE);
    radCryptoInit();
    if (confFile && radConfigure(confFile) != 0) {
        return -1;
    }
    radLibInitDone = true;
    return 0;
}

int radLibExit(void) {
    radDeconfigure();
    radMemCleanUp();
    radLibInitDone = false;
    return 0;
}
