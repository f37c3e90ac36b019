// A real RADIUS server for tests and the demo: /usr/sbin/freeradius over the configuration in
// server/, as a child process in a temporary folder, on free ports of 127.0.0.1.
#ifndef LANYARD_TESTS_INTEROP_REAL_SERVER_H
#define LANYARD_TESTS_INTEROP_REAL_SERVER_H

#include <cstdint>
#include <filesystem>
#include <string>
#include <sys/types.h>

#include "tests/support/temporary_folder.h"

namespace lanyard::test {

// The server runs for as long as the object lives, and ends when the thread that made it does,
// whatever way that comes about.
class RealServer {
  public:
    enum class Eap { kNo, kYes };

    // Starts the server and waits until it takes requests. Throws std::runtime_error, with its
    // log.
    // `eap` is kYes to serve EAP-MD5, EAP-TLS, PEAP and TTLS as well, with new certificates.
    explicit RealServer(Eap eap = Eap::kNo);
    // The same, with that secret: another server of the same clients.
    RealServer(Eap eap, std::string secret);
    ~RealServer();
    RealServer(const RealServer &) = delete;
    RealServer &operator=(const RealServer &) = delete;
    RealServer(RealServer &&) = delete;
    RealServer &operator=(RealServer &&) = delete;

    // Authentication; replies carry no Message-Authenticator.
    uint16_t authPort() const { return authPort_; }
    // Authentication; every reply carries a Message-Authenticator, as its last attribute.
    uint16_t signedPort() const { return signedPort_; }
    uint16_t acctPort() const { return acctPort_; }
    // Authentication with EAP.
    uint16_t eapPort() const { return eapPort_; }
    // A file of certificates.h: those that a server for EAP was made with.
    std::filesystem::path certificate(const std::string &file) const {
        return folder_.path() / file;
    }
    // The secret shared with all clients; another one in every object that was not
    // given one.
    const std::string &secret() const { return secret_; }

    // Where its files are: "access-requests" and "accounting", which the functions below read.
    const std::filesystem::path &folder() const { return folder_.path(); }

    // The Access-Requests so far, passwords revealed, as text: a blank line after each.
    std::string accessRequests() const;
    // The accounting records so far, likewise.
    std::string accountingRecords() const;
    // The server's own log so far.
    std::string log() const;

    // Kills the server as a crash would: whatever it knew of conversations is lost.
    void kill();
    // Starts it on its ports again after kill(). Throws std::runtime_error, with its log.
    void startAgain();

  private:
    void choosePorts();
    bool start();
    bool waitUntilReady();
    void stop();

    TemporaryFolder folder_;
    std::string secret_;
    uint16_t authPort_ = 0;
    uint16_t signedPort_ = 0;
    uint16_t acctPort_ = 0;
    uint16_t eapPort_ = 0;
    pid_t pid_ = -1;
};

}  // namespace lanyard::test

#endif
