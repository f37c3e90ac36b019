// The two that are compared: the project's programs, and hostapd, as the authenticator of the wire's port.
#ifndef LANYARD_BENCH_COMPARE_CONTESTANTS_H
#define LANYARD_BENCH_COMPARE_CONTESTANTS_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace lanyard::bench {

struct ServerPlace {
    std::string host;
    uint16_t port = 0;
    std::string secret;
};

// For who can be told.
struct Waiting {
    unsigned timeout = 0;  // seconds
    unsigned retries = 0;
};

struct Setup {
    std::vector<ServerPlace> servers = {};  // the first is asked first
    std::optional<Waiting> waiting = {};    // the defaults without
};

// Runs from its making on, on the port, and ends with the object.
class Contestant {
  public:
    Contestant() = default;
    virtual ~Contestant() = default;
    Contestant(const Contestant &) = delete;
    Contestant &operator=(const Contestant &) = delete;
    Contestant(Contestant &&) = delete;
    Contestant &operator=(Contestant &&) = delete;

    // What it has said, for a person to read.
    [[nodiscard]] virtual std::string log() const = 0;
    // The names of its programs.
    [[nodiscard]] virtual std::vector<std::string> programs() const = 0;
};

// Options of the project's programs beside their defaults.
struct OwnOptions {
    std::vector<std::string> relay = {};          // radeapd
    std::vector<std::string> authenticator = {};  // pnac-wired
};

// Both throw std::runtime_error when it does not start.
std::unique_ptr<Contestant> startOurs(const Setup &setup, const OwnOptions &options);
std::unique_ptr<Contestant> startOther(const Setup &setup);

// Whether the other one is installed.
bool otherIsThere();

}  // namespace lanyard::bench

#endif
