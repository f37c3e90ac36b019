// A real supplicant: wpa_supplicant on an interface of the wire's supplicants' side.
#ifndef LANYARD_TESTS_E2E_SUPPLICANT_H
#define LANYARD_TESTS_E2E_SUPPLICANT_H

#include <string>

#include "tests/e2e/virtual_wire.h"
#include "tests/interop/child_process.h"
#include "tests/support/temporary_folder.h"

namespace lanyard::test {

class RealServer;

// What somebody logs in with: lines of a network block of wpa_supplicant.
using Account = std::string;

// Users of the test server. Without a password the supplicant asks for it when it needs it.
Account md5Account(const std::string &identity, const std::string &password = "");
Account peapAccount(const RealServer &server, const std::string &identity,
                    const std::string &password = "");
Account ttlsAccount(const RealServer &server, const std::string &identity,
                    const std::string &password = "");
// `certificate` is "client" or "stranger", see certificates.h.
Account tlsAccount(const RealServer &server, const std::string &identity,
                   const std::string &certificate = "client");

class Supplicant {
  public:
    // What it says beside results. The functions that wait for what it does, and sessionKey(), need
    // all of it; a measurement had better do without.
    enum class Log { kAll, kResults };

    Supplicant(const VirtualWire &wire, const Account &account,
               const std::string &interface = VirtualWire::kUser, Log log = Log::kAll);

    // Waits until it listens. Then it answers when it is asked for its identity; by itself it
    // would wait for two seconds. Throws std::runtime_error.
    void awaitReady() const;

    // Has it send an EAPOL-Start.
    void start();
    // Has it send an EAPOL-Logoff.
    void logOff();
    // Waits until it asks for its password, then gives it.
    [[nodiscard]] bool asksForPassword() const;
    void givePassword(const std::string &password);

    // Waits for the end of its first login. Returns whether that is an EAP-Success.
    [[nodiscard]] bool succeeds() const { return firstResult() == "SUCCESS"; }
    // The same for an EAP-Failure.
    [[nodiscard]] bool fails() const { return firstResult() == "FAILURE"; }
    // Returns the master session key of its last login, as lower-case digits; "" for none.
    std::string sessionKey() const;

    const std::string &interface() const { return interface_; }
    // All that it has said so far.
    std::string log() const { return program_.output(); }

  private:
    std::string firstResult() const;
    void command(const std::string &text);

    std::string interface_;
    TemporaryFolder folder_;
    RunningProgram program_;
};

}  // namespace lanyard::test

#endif
