// Random numbers from the kernel's generator or from the source that the program has set.
#include <atomic>
#include <mutex>
#include <span>

#include <palcore.h>

#include "platform/export.h"
#include "platform/kernel_random.h"

namespace lanyard::port {
namespace {

struct Source {
    PalRandSource draw = nullptr;
    void *context = nullptr;
};

constinit std::mutex sourceMutex;
constinit Source currentSource;
// Who finds it unset has no source to read, and takes no lock.
constinit std::atomic<bool> sourceIsSet{false};

Source setSource() {
    const std::lock_guard lock(sourceMutex);
    return currentSource;
}

// A thread's own reserve. What the thread draws after its end, in destructors, comes from the kernel.
constinit thread_local bool threadHasEnded = false;

struct ThreadReserve {
    ThreadReserve() = default;
    ThreadReserve(const ThreadReserve &) = delete;
    ThreadReserve &operator=(const ThreadReserve &) = delete;
    ThreadReserve(ThreadReserve &&) = delete;
    ThreadReserve &operator=(ThreadReserve &&) = delete;
    ~ThreadReserve() { threadHasEnded = true; }

    RandomReserve bytes;
};

bool drawFromReserve(std::span<uint8_t> out) {
    if (threadHasEnded) {
        return false;
    }
    thread_local ThreadReserve reserve;
    return reserve.bytes.draw(out);
}

}  // namespace
}  // namespace lanyard::port

using namespace lanyard::port;

PAL_EXPORT int palRandLibInit(PalRandSource source, void *context) {
    const std::lock_guard lock(sourceMutex);
    currentSource = {source, context};
    sourceIsSet.store(source != nullptr, std::memory_order_relaxed);
    return 0;
}

PAL_EXPORT int palRandGen(uint8_t *out, uint32_t length) {
    if (length == 0) {
        return 0;
    }
    if (out == nullptr) {
        return -1;
    }
    if (sourceIsSet.load(std::memory_order_relaxed)) {
        if (const Source source = setSource(); source.draw != nullptr) {
            return source.draw(source.context, out, length) == 0 ? 0 : -1;
        }
    }
    const std::span bytes(out, length);
    return drawFromReserve(bytes) || drawFromKernel(bytes) ? 0 : -1;
}
