// What a bad network does to a datagram, decided by a seeded generator, so that a run can be repeated.
//
//     UnreliableLink link(7);
//     for (const Passing &passing : link.pass(datagram, {.loss = 0.01, .duplicate = 0.05})) {
//         ... passing.datagram goes on, passing.heldBack later than others ...
//     }
#ifndef LANYARD_TESTS_SUPPORT_UNRELIABLE_LINK_H
#define LANYARD_TESTS_SUPPORT_UNRELIABLE_LINK_H

#include <chrono>
#include <cstdint>
#include <random>
#include <span>
#include <vector>

namespace lanyard::test {

using Datagram = std::vector<uint8_t>;

// Probabilities, each of 0 to 1 and of its own.
struct LinkFaults {
    double loss = 0;
    double duplicate = 0;  // arrives twice
    double reorder = 0;    // is held back, so that later ones overtake it
    double truncate = 0;   // loses its end, and one byte of it at least
    double corrupt = 0;    // one bit of it is wrong
};

struct Passing {
    Datagram datagram;
    std::chrono::microseconds heldBack{0};
};

class UnreliableLink {
  public:
    // How much later than others a datagram arrives that is to be overtaken.
    static constexpr std::chrono::milliseconds kHeldBack{20};

    explicit UnreliableLink(uint32_t seed) : generator_(seed) {}

    // What arrives of a datagram: nothing, itself, or two of it.
    std::vector<Passing> pass(std::span<const uint8_t> datagram, const LinkFaults &faults);

  private:
    bool happens(double probability);
    size_t anyOf(size_t count);

    std::mt19937 generator_;
};

}  // namespace lanyard::test

#endif
