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
    constexpr uint32_t kSmall = 64;
    std::vector<void *> blocks;
    while (void *block = palMemPartAlloc(partition, kSmall)) {
        blocks.push_back(block);
    }
    for (void *block : blocks) {
        palMemPartFree(partition, block);
    }
    return blocks.size();
}

}  // namespace lanyard::test
