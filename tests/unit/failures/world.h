// A whole device, made anew for every call: servers that accept, the library started or not, a database,
// the bus with the relay on it, a loop, the attributes of a request.
#ifndef LANYARD_TESTS_UNIT_FAILURES_WORLD_H
#define LANYARD_TESTS_UNIT_FAILURES_WORLD_H

#include <cstdint>
#include <optional>
#include <string>

#include <lanyard/radius/eap.h>
#include <lanyard/radius/engine.h>
#include <lanyard/radius/loop.h>

#include "tests/unit/client/system_calls.h"
#include "tests/unit/device/database_file.h"
#include "tests/unit/login/outcome.h"

namespace lanyard::test {

// What there is beside the files and the servers.
enum Needs : unsigned {
    kStopped = 0,        // the library is not started
    kStarted = 1,        // it is started and configured
    kDatabase = 2,       // and has a database
    kInterrupted = 4,    // whose last writer was killed in a transaction
    kBus = 8,            // the relay is registered on the bus, and so is the authenticator
    kConversation = 16,  // and an identity waits in a conversation
    kLoop = 32,          // there is a loop
    kRequest = 64        // with a request in flight
};

inline constexpr const char *kUser = "nemo";
inline constexpr const char *kUsersPassword = "arctangent";
inline constexpr const char *kConfFile = "/var/radius.conf";
inline constexpr const char *kDictFile = "/nexa2.0/etc/radius.dict";
inline constexpr uint32_t kCookie = 0x1001;

// They accept whoever comes.
struct Servers {
    Servers();

    ScriptedServer auth{kSecret};
    ScriptedServer acct{kSecret};
};

class World {
  public:
    World(const Servers &servers, unsigned needs);
    World(const World &) = delete;
    World &operator=(const World &) = delete;
    // Expects that nothing is left: no block of the partition or the heap.
    ~World();

    // All that a call can change: configuration, dictionary, files, conversations.
    [[nodiscard]] std::string state() const;

    [[nodiscard]] const DatabaseFile &database() const { return *database_; }
    [[nodiscard]] const char *databasePath() const { return databasePath_.c_str(); }

    // One request to the server, and a reply to it that is not read yet.
    [[nodiscard]] RadRequestDesc request() const;

    // A loop until its one request has ended, while time passes quickly; its code, 0 for none.
    int64_t finishLoop();

    // Told by the loop of its requests.
    static void done(void *world, RadRequest *request, int code, RadPair *reply);
    static void loginDone(void *world, RadRequest *request, const RadLogin *login);

    RadPair *pairs = nullptr;  // User-Name, User-Password
    RadPair *made = nullptr;   // pairs that the call made
    void *block = nullptr;     // a block that it made
    RadLoop *loop = nullptr;
    RadRequest *started = nullptr;
    int64_t code = 0;

  private:
    [[nodiscard]] const TemporaryRoot &root() const;
    void openDatabase(bool interrupted);

    const Servers &servers_;
    std::optional<ConfiguredLibrary> library_;
    std::optional<StoppedDevice> device_;
    std::optional<DatabaseFile> database_;
    std::string databasePath_;
    XbusCtx *pnac_ = nullptr;
    const HostName name_{"127.0.0.1"};
    const ClockAhead clock_;
};

}  // namespace lanyard::test

#endif
