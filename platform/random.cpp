// Random numbers from the kernel's generator or from the source that the program has set.
#include <cerrno>
#include <mutex>
#include <sys/random.h>

#include <palcore.h>

#include "platform/export.h"

namespace lanyard::port {
namespace {

struct Source {
    PalRandSource draw = nullptr;
    void *context = nullptr;
};

constinit std::mutex sourceMutex;
constinit Source currentSource;

int drawFromKernel(uint8_t *out, uint32_t length) {
    uint32_t have = 0;
    while (have < length) {
        const ssize_t got = getrandom(out + have, length - have, 0);
        if (got > 0) {
            have += static_cast<uint32_t>(got);
        } else if (got == 0 || errno != EINTR) {
            return -1;
        }
    }
    return 0;
}

}  // namespace
}  // namespace lanyard::port

using namespace lanyard::port;

PAL_EXPORT int palRandLibInit(PalRandSource source, void *context) {
    const std::lock_guard lock(sourceMutex);
    currentSource = {source, context};
    return 0;
}

PAL_EXPORT int palRandGen(uint8_t *out, uint32_t length) {
    if (length == 0) {
        return 0;
    }
    if (out == nullptr) {
        return -1;
    }
    Source source;
    {
        const std::lock_guard lock(sourceMutex);
        source = currentSource;
    }
    if (source.draw == nullptr) {
        return drawFromKernel(out, length);
    }
    return source.draw(source.context, out, length) == 0 ? 0 : -1;
}
