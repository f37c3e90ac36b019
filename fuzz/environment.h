// What the fuzz targets stand on: the library, started with the built-in dictionary, over an OS
// layer that lets no fault pass.
//
// environment.cpp defines in place of the OS layer's own
//   the memory functions: every block is one of malloc(), so that AddressSanitizer sees each
//     overrun, each use after free and each leak;
//   the log functions: every message is formatted and every dump is read, and both are dropped.
#ifndef LANYARD_FUZZ_ENVIRONMENT_H
#define LANYARD_FUZZ_ENVIRONMENT_H

#include <cstddef>
#include <cstdint>
#include <vector>

// The entry points that libFuzzer and driver.cpp call.
extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace lanyard::fuzz {

// Ends the process with a message that says what does not hold.
void require(bool holds, const char *what);

// Blocks that were allocated and not freed.
size_t liveBlocks();

// From now on the n-th allocation (1: the next) fails, once; 0: none does.
void failAllocation(unsigned n);

// Whether it has come to pass since the order.
bool allocationFailed();

// The octets in a block of exactly their number, so that a read beyond them is seen.
std::vector<uint8_t> packetFrom(const uint8_t *data, size_t size);

// Text with its NUL, likewise.
std::vector<char> textFrom(const uint8_t *data, size_t size);

}  // namespace lanyard::fuzz

#endif
