// The supplicants' side of the wire: people with wpa_supplicant who all begin to log in when they are told to.
//
// They are kept off the wire until the authenticator runs: it asks who is there when it starts, and they begin
// by themselves two seconds after their start. Then a raw EAPOL-Start for each is all that begins a login.
#ifndef LANYARD_BENCH_COMPARE_AUDIENCE_H
#define LANYARD_BENCH_COMPARE_AUDIENCE_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "bench/wire_capture.h"
#include "tests/e2e/supplicant.h"
#include "tests/e2e/virtual_wire.h"
#include "tools/file_descriptor.h"
#include "tools/pnac_wired/eapol.h"

namespace lanyard::bench {

struct Login {
    Moment start{};                   // of the EAPOL-Start on the wire
    std::optional<Moment> success{};  // of the first EAP-Success
    size_t failures = 0;              // EAP-Failures

    [[nodiscard]] std::optional<double> seconds() const {
        return success ? std::optional((*success - start).count()) : std::nullopt;
    }
};

// Until when logins are waited for; the limit ends it in any case.
enum class Until { kSuccess, kVerdict };

class Audience {
  public:
    explicit Audience(test::VirtualWire &wire);

    // In place of those before: one with each account, running, off the wire. Throws std::runtime_error.
    void invite(const std::vector<test::Account> &accounts);
    // Lets them onto the wire, of an authenticator that runs.
    void letIn();
    void sendHome() { people_.clear(); }

    // Has these begin at the same time. `meanwhile` is called every few milliseconds.
    std::vector<Login> logIn(const std::vector<size_t> &who, std::chrono::duration<double> limit,
                             Until until = Until::kSuccess,
                             const std::function<void()> &meanwhile = {});
    // What these have done by themselves since then, after their last login, and go on to do.
    std::vector<Login> watch(const std::vector<size_t> &who, std::chrono::duration<double> limit,
                             Moment since);

    std::vector<pnac::Mac> addresses() const;
    // Frames from and to addresses that begin with these two bytes are not looked at.
    void overlook(uint16_t addresses) const { capture_.overlook(addresses); }

  private:
    struct Person {
        pnac::Mac address = {};
        std::string interface = {};
        std::unique_ptr<test::Supplicant> supplicant = {};
    };

    void setLinks(const char *state) const;
    void follow(const std::vector<size_t> &who, std::vector<Login> &logins,
                std::chrono::duration<double> limit, Until until,
                const std::function<void()> &meanwhile) const;
    void awaitOwnStarts() const;

    test::VirtualWire &wire_;
    WireCapture capture_{test::VirtualWire::kPort};
    FileDescriptor sender_;
    std::vector<Person> people_;
};

}  // namespace lanyard::bench

#endif
