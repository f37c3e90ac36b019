// Somebody at a port who tries one password after the other, as fast as the authenticator lets him.
#ifndef LANYARD_BENCH_COMPARE_GUESSER_H
#define LANYARD_BENCH_COMPARE_GUESSER_H

#include <chrono>
#include <cstddef>
#include <string>

#include "tests/e2e/virtual_wire.h"

namespace lanyard::bench {

// Guesses with EAP-MD5 for so long. Returns how many guesses got their verdict, an EAP-Failure.
size_t guess(const test::VirtualWire &wire, const std::string &identity,
             std::chrono::duration<double> time);

}  // namespace lanyard::bench

#endif
