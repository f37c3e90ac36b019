// Attacks on the port, each in a thread of its own beside people who log in.
#ifndef LANYARD_BENCH_COMPARE_SIEGE_H
#define LANYARD_BENCH_COMPARE_SIEGE_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "tests/e2e/virtual_wire.h"
#include "tools/pnac_wired/eapol.h"

namespace lanyard::bench {

// The addresses that attackers invent begin with these two bytes.
constexpr uint16_t kInvented = 0x0266;

// One step of an attack. Returns how many frames it has sent.
using AttackStep = std::function<size_t()>;
using Addresses = std::vector<pnac::Mac>;

// Frames of all types and lengths, most of them broken.
AttackStep sendJunk(const test::VirtualWire &wire);
// An EAPOL-Start of another address each.
AttackStep inventAddresses(const test::VirtualWire &wire);
// A login of another address each, with an identity of another length; what comes of it is not answered.
AttackStep giveIdentities(const test::VirtualWire &wire);
// The same with that identity, which the server knows.
AttackStep leaveHalfOpen(const test::VirtualWire &wire, const std::string &identity);
// An EAPOL-Logoff of these, one after the other.
AttackStep logOffOthers(const test::VirtualWire &wire, const Addresses &victims);
// All that these have sent, again and again.
AttackStep replay(const test::VirtualWire &wire, const Addresses &victims);

// Takes steps from its making on, so many a second or as many as it can.
class Siege {
  public:
    Siege(AttackStep step, unsigned stepsASecond);
    ~Siege() { end(); }
    Siege(const Siege &) = delete;
    Siege &operator=(const Siege &) = delete;
    Siege(Siege &&) = delete;
    Siege &operator=(Siege &&) = delete;

    // Returns how many frames it has sent.
    uint64_t end();

  private:
    void run(unsigned stepsASecond);

    AttackStep step_;
    std::atomic<bool> over_ = false;
    std::atomic<uint64_t> frames_ = 0;
    std::thread thread_;
};

}  // namespace lanyard::bench

#endif
