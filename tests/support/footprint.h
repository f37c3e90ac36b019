// What a process holds, to be compared early and late in its life: what grows is left behind.
//
//     const Footprint before = footprintOf(getpid());
//     ... a million logins ...
//     EXPECT_EQ(before.descriptors, footprintOf(getpid()).descriptors);
#ifndef LANYARD_TESTS_SUPPORT_FOOTPRINT_H
#define LANYARD_TESTS_SUPPORT_FOOTPRINT_H

#include <cstddef>
#include <sys/types.h>

#include <palcore.h>

namespace lanyard::test {

// Memory checks of sanitizers keep what was freed, so that the resident memory of a program with them
// tells nothing.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kResidentTells = false;
#else
inline constexpr bool kResidentTells = true;
#endif

struct Footprint {
    size_t descriptors = 0;
    size_t residentKiB = 0;
};

// Throws std::runtime_error when there is no such process.
Footprint footprintOf(pid_t process);

// How many bytes a partition still has room for, in blocks of 64 bytes and more: all of them are taken, the
// largest first, then freed. What is live, and what is too scattered to be used, is missing from it.
size_t roomIn(PalMemPartId partition);

}  // namespace lanyard::test

#endif
