#include "tests/support/unreliable_link.h"

namespace lanyard::test {

bool UnreliableLink::happens(double probability) {
    // Without a number drawn for what cannot happen, one fault's sequence does not depend on others.
    return probability > 0 && std::uniform_real_distribution<>(0, 1)(generator_) < probability;
}

// A number below the count, which is not 0.
size_t UnreliableLink::anyOf(size_t count) {
    return std::uniform_int_distribution<size_t>(0, count - 1)(generator_);
}

std::vector<Passing> UnreliableLink::pass(std::span<const uint8_t> datagram,
                                          const LinkFaults &faults) {
    if (happens(faults.loss)) {
        return {};
    }
    Passing passing{.datagram = {datagram.begin(), datagram.end()}};
    if (!datagram.empty() && happens(faults.truncate)) {
        passing.datagram.resize(anyOf(datagram.size()));
    }
    if (!passing.datagram.empty() && happens(faults.corrupt)) {
        const size_t bit = anyOf(passing.datagram.size() * 8);
        passing.datagram[bit / 8] ^= static_cast<uint8_t>(1U << bit % 8);
    }
    if (happens(faults.reorder)) {
        passing.heldBack = kHeldBack;
    }
    std::vector<Passing> all(happens(faults.duplicate) ? 2 : 1, passing);
    return all;
}

}  // namespace lanyard::test
