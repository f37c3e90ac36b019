#include "tests/unit/secrets/process_memory.h"

#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <unistd.h>
#include <unordered_map>

#include "tools/file_descriptor.h"

namespace lanyard::test {
namespace {

constexpr size_t kWindow = sizeof(uint64_t);

using Windows = std::unordered_map<uint64_t, std::string>;

uint64_t windowAt(const uint8_t *bytes) {
    uint64_t window = 0;
    std::memcpy(&window, bytes, kWindow);
    return window;
}

Windows windowsOf(const Secrets &secrets) {
    Windows windows;
    for (const auto &[name, bytes] : secrets) {
        for (size_t at = 0; at + kWindow <= bytes.size(); ++at) {
            windows.emplace(windowAt(&bytes[at]), name + " from byte " + std::to_string(at));
        }
    }
    return windows;
}

// Few places pass the first look, at two bytes.
class FirstLook {
  public:
    explicit FirstLook(const Windows &windows) : known_(UINT16_MAX + 1) {
        for (const auto &[window, name] : windows) {
            known_[window & UINT16_MAX] = 1;
        }
    }

    [[nodiscard]] const uint8_t *known() const { return known_.data(); }

  private:
    Bytes known_;
};

[[gnu::optimize("O2"), gnu::no_sanitize_address]] size_t nextCandidate(const uint8_t *known,
                                                                       const uint8_t *bytes,
                                                                       size_t at, size_t end) {
    while (at < end && known[bytes[at] | bytes[at + 1] << 8] == 0) {
        ++at;
    }
    return at;
}

struct Mapping {
    uint64_t start = 0;
    uint64_t end = 0;
    std::string line;
};

// Writable ones, but for what a sanitizer reserves: no program copies anything to it.
std::vector<Mapping> mappingsOf(pid_t process) {
    constexpr uint64_t kReserved = uint64_t{1} << 30;
    std::vector<Mapping> mappings;
    std::ifstream lines("/proc/" + std::to_string(process) + "/maps");
    for (std::string line; std::getline(lines, line);) {
        Mapping mapping{.line = line};
        char dash = 0;
        std::string mode;
        std::istringstream(line) >> std::hex >> mapping.start >> dash >> mapping.end >> mode;
        if (mode.starts_with("rw") && mapping.end - mapping.start < kReserved) {
            mappings.push_back(mapping);
        }
    }
    return mappings;
}

}  // namespace

std::vector<std::string> findSecrets(pid_t process, const Secrets &secrets) {
    const Windows windows = windowsOf(secrets);
    const FirstLook look(windows);
    const std::string path = "/proc/" + std::to_string(process) + "/mem";
    const FileDescriptor memory(open(path.c_str(), O_RDONLY | O_CLOEXEC), path);
    const std::vector<Mapping> mappings = mappingsOf(process);
    EXPECT_FALSE(mappings.empty());
    std::vector<std::string> places;
    for (const Mapping &mapping : mappings) {
        Bytes bytes(mapping.end - mapping.start);
        const ssize_t size =
            pread(memory.get(), bytes.data(), bytes.size(), static_cast<off_t>(mapping.start));
        EXPECT_LT(0, size) << mapping.line;
        const size_t end =
            size < static_cast<ssize_t>(kWindow) ? 0 : static_cast<size_t>(size) - kWindow + 1;
        for (size_t at = 0; (at = nextCandidate(look.known(), bytes.data(), at, end)) < end; ++at) {
            const auto found = windows.find(windowAt(&bytes[at]));
            if (found != windows.end()) {
                std::ostringstream place;
                place << found->second << " at +0x" << std::hex << at << " of " << mapping.line;
                places.push_back(place.str());
            }
        }
    }
    return places;
}

}  // namespace lanyard::test
