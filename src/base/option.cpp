// Options of the whole library: integers, 0 until the program sets them.
#include <array>
#include <atomic>

#include <lanyard/radius/frame.h>

namespace {

std::array<std::atomic<int>, RAD_OPTION_COUNT> options{};

bool isOption(int option) {
    return option >= 0 && option < RAD_OPTION_COUNT;
}

}  // namespace

int radOptionSet(int option, int value) {
    if (!isOption(option)) {
        return -1;
    }
    options[static_cast<size_t>(option)].store(value, std::memory_order_relaxed);
    return 0;
}

int radOptionGet(int option) {
    return isOption(option) ? options[static_cast<size_t>(option)].load(std::memory_order_relaxed)
                            : -1;
}
