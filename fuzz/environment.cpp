#include "fuzz/environment.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <netdb.h>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/dict.h>
#include <lanyard/radius/frame.h>
#include <palcore.h>

namespace lanyard::fuzz {

void require(bool holds, const char *what) {
    if (!holds) {
        (void)std::fprintf(stderr, "fuzz: does not hold: %s\n", what);
        std::abort();
    }
}

std::vector<uint8_t> packetFrom(const uint8_t *data, size_t size) {
    constexpr size_t kHeaderSize = sizeof(RadPacket);
    if (size < kHeaderSize) {
        return {};
    }
    // The receiver of a packet sees to it that the length field does not exceed what has arrived.
    const size_t announced = static_cast<size_t>(data[2]) << 8 | data[3];
    const size_t length = std::min({announced, size, size_t{UINT16_MAX}});
    std::vector<uint8_t> packet(data, data + std::max(length, kHeaderSize));
    packet[2] = static_cast<uint8_t>(length >> 8);
    packet[3] = static_cast<uint8_t>(length);
    return packet;
}

std::vector<char> textFrom(const uint8_t *data, size_t size) {
    const uint8_t *end = std::find(data, data + size, uint8_t{0});
    std::vector<char> text(static_cast<size_t>(end - data) + 1);
    std::copy(data, end, text.begin());
    return text;
}

uint8_t Script::u8() {
    if (atEnd()) {
        return 0;
    }
    const uint8_t value = left_[0];
    left_ = left_.subspan(1);
    return value;
}

uint16_t Script::u16() {
    const uint8_t high = u8();
    return static_cast<uint16_t>(high << 8 | u8());
}

uint32_t Script::u32() {
    const uint32_t high = u16();
    return high << 16 | u16();
}

Bytes Script::bytes(size_t size) {
    const ByteView part = left_.first(std::min(size, left_.size()));
    left_ = left_.subspan(part.size());
    return {part.begin(), part.end()};
}

}  // namespace lanyard::fuzz

using namespace lanyard::fuzz;

int LLVMFuzzerInitialize(int * /*argc*/, char *** /*argv*/) {
    // A fault that the partition sees ends the process.
    GTEST_FLAG_SET(break_on_failure, true);
    // Reports go to standard error; what radPairShow() prints goes nowhere.
    require(std::freopen("/dev/null", "w", stdout) != nullptr, "standard output can be dropped");
    require(radLibInit(nullptr) == 0, "the library starts");
    require(radDictLoad(nullptr) == 0, "the built-in dictionary loads");
    return 0;
}

// There is no services database: reading it takes most of the time.
int getservbyname_r(const char * /*name*/, const char * /*protocol*/, servent * /*entry*/,
                    char * /*buffer*/, size_t /*size*/, servent **result) {
    *result = nullptr;
    return 0;
}

void palModuleDebug(int /*module*/, int /*level*/, const char *function, int /*line*/,
                    const char *format, ...) {
    std::array<char, 1024> text{};
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    require(length > 0 && function != nullptr, "a message has a text and a function");
}

void palModuleDebugHex(int /*module*/, int /*level*/, const char *title, const void *data,
                       int length) {
    require(title != nullptr && length >= 0, "a dump has a title and a length");
    const auto *bytes = static_cast<const uint8_t *>(data);
    const std::vector<uint8_t> read(bytes, bytes + length);
}
