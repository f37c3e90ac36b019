// What the tests of all methods share: one server and the library configured for it, one call with
// all that it said, and what a request must look like.
//
//     const OneAuthServer far({accept(Attributes().addText(18, "Hello"))});
//     const Outcome run = runAs("radAuth", [] { return radAuth("nemo", "arctangent"); });
//     EXPECT_THAT(run, Ended(0, "\"nemo\" RADIUS Authentication OK\n..."));
//     EXPECT_PROBLEMS(run);
//     expectAccessRequest(far.server.request(0), far.server.secret(),
//                         Attributes().addText(1, "nemo"). ...);
//
// The device's own address is kDeviceAddress.
#ifndef LANYARD_TESTS_UNIT_LOGIN_OUTCOME_H
#define LANYARD_TESTS_UNIT_LOGIN_OUTCOME_H

#include <functional>
#include <initializer_list>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/test.h"

namespace lanyard::test {

inline constexpr const char *kDeviceAddress = "127.0.0.1";
inline constexpr const char *kSecret = "xyzzy5461";

// Seconds that a server which answers may take on a busy machine.
inline constexpr int kPatience = 10;

// The library and its one server, which is of that kind alone.
struct OneAuthServer {
    explicit OneAuthServer(std::vector<Action> script)
        : server(kSecret, std::move(script)),
          library({.authServers = {serverEntry(server, kPatience)}}) {}

    ScriptedServer server;
    ConfiguredLibrary library;
};

struct OneAcctServer {
    explicit OneAcctServer(std::vector<Action> script)
        : server(kSecret, std::move(script)),
          library({.acctServers = {serverEntry(server, kPatience)}}) {}

    ScriptedServer server;
    ConfiguredLibrary library;
};

// One call of a public function and all that it said. EXPECT_LOG and EXPECT_PROBLEMS take it.
struct Outcome {
    int result = 0;
    std::string output;             // on standard output
    std::vector<std::string> told;  // the log of the function itself and of radPairShow()
    std::vector<LogLine> lines;     // the whole log
    std::vector<LogDump> dumps;

    [[nodiscard]] std::vector<std::string> log() const;
    [[nodiscard]] std::vector<std::string> problemLog() const;
};

void PrintTo(const Outcome &run, std::ostream *stream);

// Matches a call by its result, what it printed, and what it told or all that was logged.
testing::Matcher<const Outcome &> Ended(int result, const std::string &output = "",
                                        const std::vector<std::string> &told = {});
testing::Matcher<const Outcome &> EndedWithLog(int result, const std::string &output,
                                               const std::vector<std::string> &log);

// Makes the call. `function` is the tag of the public function's own log lines.
Outcome runAs(const std::string &function, const std::function<int()> &call);

// Expects that nothing told the secret, but for lines at the trace level, nor the password to
// anybody.
void expectSecrecy(const Outcome &run, const std::optional<std::string> &password = {});

// Expects an Access-Request of exactly these attributes in this order and, after them, a valid
// Message-Authenticator. The value of User-Password is compared in the clear, as padded() has it.
void expectAccessRequest(const ReceivedRequest &request, std::string_view secret,
                         const Attributes &attributes);

// Expects an Accounting-Request of exactly these attributes with a valid authenticator.
void expectAccountingRequest(const ReceivedRequest &request, std::string_view secret,
                             const Attributes &attributes);

// A password as User-Password carries it: filled with zeros to whole blocks of 16 bytes.
Bytes padded(std::string_view password);

// The arguments of a program, as main() gets them.
class Arguments {
  public:
    Arguments(std::initializer_list<std::string> words) : Arguments(std::vector(words)) {}
    explicit Arguments(std::vector<std::string> words);
    Arguments(const Arguments &) = delete;
    Arguments(Arguments &&) = default;
    Arguments &operator=(const Arguments &) = delete;
    Arguments &operator=(Arguments &&) = delete;
    ~Arguments() = default;

    [[nodiscard]] int count() const { return static_cast<int>(words_.size()); }
    [[nodiscard]] char **vector() { return pointers_.data(); }

  private:
    std::vector<std::string> words_;
    std::vector<char *> pointers_;
};

// A device on which the library is not started yet, for what starts it itself. At the end it stops
// the library and expects nothing to be left over.
class StoppedDevice {
  public:
    StoppedDevice();
    StoppedDevice(const StoppedDevice &) = delete;
    StoppedDevice &operator=(const StoppedDevice &) = delete;
    ~StoppedDevice();

    [[nodiscard]] const TemporaryRoot &root() const { return root_; }

    // Writes a configuration file that names these servers.
    void configure(std::string_view path, const ScriptedServer &authServer) const;
    void configure(std::string_view path, const ScriptedServer &authServer,
                   const ScriptedServer &acctServer) const;

  private:
    TemporaryRoot root_;
};

// Stops the library and expects that its partition is empty then.
void stopLibrary();

}  // namespace lanyard::test

#endif
