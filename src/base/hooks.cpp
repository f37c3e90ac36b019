// The installable per-attribute hooks.
#include <lanyard/radius/frame.h>

RadFuncTbl *pRadFuncTbl = nullptr;

namespace {

RadFuncTbl installedHooks{};

}  // namespace

int radFuncTblInstall(const RadFuncTbl *table) {
    if (!table) {
        return -1;
    }
    installedHooks = *table;
    pRadFuncTbl = &installedHooks;
    return 0;
}

int radFuncTblUninstall(void) {
    installedHooks = {};
    pRadFuncTbl = nullptr;
    return 0;
}
