// What the fuzz targets stand on: the library, started with the built-in dictionary, over an OS
// layer that lets no fault pass. Its memory is the tests' failing partition, which ends the process
// when what is freed is no live block; environment.cpp defines the log functions: every message is
// formatted and every dump is read, and both are dropped.
#ifndef LANYARD_FUZZ_ENVIRONMENT_H
#define LANYARD_FUZZ_ENVIRONMENT_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "tests/support/failing_partition.h"

// The entry points that libFuzzer and driver.cpp call.
extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace lanyard::fuzz {

using test::allocationFailed;
using test::failAllocation;
using test::liveBlocks;

// Ends the process with a message that says what does not hold.
void require(bool holds, const char *what);

// The bytes in a block of exactly their number, so that a read beyond them is seen.
std::vector<uint8_t> packetFrom(const uint8_t *data, size_t size);

// Text with its NUL, likewise.
std::vector<char> textFrom(const uint8_t *data, size_t size);

using Bytes = std::vector<uint8_t>;
using ByteView = std::span<const uint8_t>;

// An input that is read as a script: numbers and parts, one after the other. After its end every number is 0
// and every part empty.
class Script {
  public:
    Script(const uint8_t *data, size_t size) : left_(data, size) {}

    [[nodiscard]] bool atEnd() const { return left_.empty(); }
    uint8_t u8();
    // Big-endian.
    uint16_t u16();
    uint32_t u32();
    // A number below `end`.
    unsigned below(unsigned end) { return u8() % end; }
    // At most that many bytes, in a block of exactly their number.
    Bytes bytes(size_t size);
    // As many as the next number says: one byte or two.
    Bytes part() { return bytes(u8()); }
    Bytes longPart() { return bytes(u16()); }
    Bytes rest() { return bytes(left_.size()); }

  private:
    ByteView left_;
};

}  // namespace lanyard::fuzz

#endif
