#include "tests/support/footprint.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

namespace lanyard::test {

Footprint footprintOf(pid_t process) {
    const std::string folder = "/proc/" + std::to_string(process);
    size_t virtualPages = 0;
    size_t residentPages = 0;
    if (!(std::ifstream(folder + "/statm") >> virtualPages >> residentPages)) {
        throw std::runtime_error("no process " + std::to_string(process));
    }
    const std::filesystem::directory_iterator open(folder + "/fd");
    const auto count = static_cast<size_t>(std::distance(begin(open), end(open)));
    // The one that reads the folder is none of the process before and after, or none of another's.
    return {.descriptors = process == getpid() ? count - 1 : count,
            .residentKiB = residentPages * static_cast<size_t>(sysconf(_SC_PAGESIZE)) / 1024};
}

size_t roomIn(PalMemPartId partition) {
    constexpr uint32_t kLargest = 64U << 20U;
    constexpr uint32_t kSmallest = 64;
    size_t room = 0;
    std::vector<void *> blocks;
    for (uint32_t size = kLargest; size >= kSmallest; size /= 2) {
        while (void *block = palMemPartAlloc(partition, size)) {
            blocks.push_back(block);
            room += size;
        }
    }
    for (void *block : blocks) {
        palMemPartFree(partition, block);
    }
    return room;
}

}  // namespace lanyard::test
