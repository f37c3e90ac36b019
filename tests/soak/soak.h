// How long the soaks are: short, unless LANYARD_SOAK is set (scripts/soak.sh). What a process holds is compared
// with what it held early.
#ifndef LANYARD_TESTS_SOAK_SOAK_H
#define LANYARD_TESTS_SOAK_SOAK_H

#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

#include "tests/support/footprint.h"

namespace lanyard::test {

inline bool isWholeSoak() {
    return std::getenv("LANYARD_SOAK") != nullptr;
}

// What a pool or a cache may come to need later than a warm-up shows, and no leak of a soak.
inline constexpr size_t kResidentSlackKiB = 512;

// Expects a process to hold no more than it did, and prints both for a whole soak.
inline void expectNoMore(const std::string &name, const Footprint &early, const Footprint &late) {
    EXPECT_EQ(early.descriptors, late.descriptors) << name;
    if (kResidentTells) {
        EXPECT_LE(late.residentKiB, early.residentKiB + kResidentSlackKiB) << name;
    }
    if (isWholeSoak()) {
        std::printf("soak %s: descriptors %zu then %zu, resident KiB %zu then %zu\n", name.c_str(),
                    early.descriptors, late.descriptors, early.residentKiB, late.residentKiB);
    }
}

}  // namespace lanyard::test

#endif
