// A network device: the programs of the build at work together, in a folder that stands in for the
// device's files.
#ifndef LANYARD_TESTS_E2E_DEVICE_H
#define LANYARD_TESTS_E2E_DEVICE_H

#include <chrono>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

#include "tests/interop/child_process.h"
#include "tests/support/temporary_folder.h"

namespace lanyard::test {

// An event of the authenticator, as pnac-wired describes it.
using Event = nlohmann::json;

class Device {
  public:
    // Makes the files and the database, which has no servers yet. Throws std::runtime_error.
    Device();
    ~Device();
    Device(const Device &) = delete;
    Device &operator=(const Device &) = delete;
    Device(Device &&) = delete;
    Device &operator=(Device &&) = delete;

    // The folder that stands in for the device's files: PAL_ROOT of its programs.
    const std::filesystem::path &root() const { return root_.path(); }

    // Runs `lanyardctl db`, and starts a relay again that it ends. Throws std::runtime_error when it
    // fails.
    void db(const std::vector<std::string> &arguments);
    // Adds a server with a time-out of a second and no retries.
    void addServer(const std::string &host, uint16_t port, const std::string &secret);

    // Starts `lanyardctl db serve`.
    void startService();
    void endService() { service_.reset(); }
    // Runs `lanyardctl db` and waits until the service has taken what it changed to the relay.
    void change(const std::vector<std::string> &arguments);

    // Waits until the service has given a relay servers, and starts a relay again that it ends. Throws
    // std::runtime_error.
    void awaitRelay();

    // The processes that run.
    pid_t relay() const { return relay_; }
    pid_t service() const { return service_->process(); }
    pid_t authenticator() const { return authenticator_->process(); }

    // Options for relays that are started from now on.
    void setRelayOptions(const std::vector<std::string> &options) { relayOptions_ = options; }
    // Starts radeapd, or another relay, and returns when it runs as a daemon.
    void startRelay(const std::string &program = kRelay);
    // Sends it a signal and waits for its end. Throws std::runtime_error when there is none.
    // Returns how long it took.
    std::chrono::milliseconds endRelay(int signal);

    // Starts pnac-wired on the wire, which asks for identities at once. `variables`: "NAME=value" to
    // add to its environment.
    void startAuthenticator(const std::vector<std::string> &options = {},
                            const std::vector<std::string> &variables = {});
    // The same, with a file for its standard output, such as a terminal: its events are nowhere
    // else. Returns when it runs, not when it is ready.
    void startAuthenticatorAt(const std::string &output, const std::vector<std::string> &options);
    // Runs `pnac-wired status` with those arguments.
    ProgramResult showStatus(const std::vector<std::string> &arguments) const;
    // Its status as a JSON object. Throws std::runtime_error when there is none.
    nlohmann::json status() const;
    // Sends it a signal.
    void signalAuthenticator(int signal) const { authenticator_->signal(signal); }
    // How often it has gone to sleep so far, and has been put to it, as the system counts that.
    std::string authenticatorsSwitches() const;
    // Waits for its end. Returns its exit status; nothing when it runs on.
    std::optional<int> awaitAuthenticatorsEnd();
    // Its events so far.
    std::vector<Event> events() const;
    // Waits for an event. Returns the first one that fits; none after 20 seconds.
    [[nodiscard]] std::optional<Event> waitForEvent(
        const std::function<bool(const Event &)> &fits) const;
    // The same, for the first event of a supplicant.
    [[nodiscard]] std::optional<Event> firstEventOf(const std::string &address) const;

    // Whatever the programs have logged, for a person to read.
    std::string logs() const;
    // Ends the programs that run. Returns what is not as it should be: another exit status than 0
    // after SIGTERM, findings of sanitizers in any program so far; "" for nothing.
    std::string stop();

  private:
    static const char *const kRelay;

    std::vector<std::string> settings(const std::string &log) const;
    void runAuthenticator(std::vector<std::string> command, const std::vector<std::string> &options,
                          const std::vector<std::string> &variables = {});

    void superviseRelay();

    TemporaryFolder root_;
    std::string database_;
    std::optional<RunningProgram> service_;
    std::optional<RunningProgram> authenticator_;
    pid_t relay_ = -1;
    std::string relayProgram_;
    std::vector<std::string> relayOptions_;
    std::string wrong_;  // what stop() has to tell
};

}  // namespace lanyard::test

#endif
