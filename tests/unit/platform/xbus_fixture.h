// What the tests of the bus share: modules that record what they get, processes that run a part of
// a test, peers that speak for themselves, and a hand on the bus's waits.
#ifndef LANYARD_TESTS_UNIT_PLATFORM_XBUS_FIXTURE_H
#define LANYARD_TESTS_UNIT_PLATFORM_XBUS_FIXTURE_H

#include <chrono>
#include <cstdint>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <optional>
#include <span>
#include <string>
#include <sys/resource.h>
#include <sys/types.h>
#include <unistd.h>
#include <vector>

#include <xbus.h>

#include "platform/xbus_message.h"
#include "tests/support/bytes.h"
#include "tests/support/log_recorder.h"
#include "tests/support/temporary_root.h"
#include "tools/file_descriptor.h"

namespace lanyard::test {

// Numbers of modules.
constexpr uint32_t kPnac = 6;
constexpr uint32_t kRelay = 8;

// The bytes that each buffer of a message may have.
constexpr uint32_t kMost = 64 * 1024;

constexpr std::chrono::microseconds kPatience = std::chrono::seconds(20);
constexpr int kPatienceMilliseconds = 20000;

// One message as a handler got it; a null pointer has no bytes.
struct Received {
    uint32_t command = 0;
    std::optional<Bytes> buf;
    std::optional<Bytes> out;

    bool operator==(const Received &) const = default;
};

// What a handler was called with.
struct Invocation {
    uint32_t command = 0;
    std::span<uint8_t> buf;
    std::span<uint8_t> out;
    uint32_t *outLength = nullptr;
};

// A module on the bus for as long as it lives.
class Module {
  public:
    explicit Module(uint32_t number);
    ~Module();
    Module(const Module &) = delete;
    Module &operator=(const Module &) = delete;
    Module(Module &&) = delete;
    Module &operator=(Module &&) = delete;

    XbusCtx *context() const { return context_; }

    int listen(std::chrono::microseconds timeout = kPatience);

    // Sends without waiting.
    [[nodiscard]] int notify(uint32_t module, uint32_t command, const Bytes &buf = {}) const;

    // Sends and waits; `out` is replaced by what comes back.
    [[nodiscard]] int call(uint32_t module, uint32_t command, const Bytes &buf, Bytes &out) const;
    [[nodiscard]] int call(uint32_t module, uint32_t command) const;

    // Drops the context without taking it off the bus.
    void forget() { context_ = nullptr; }

    // What came in, unless there is a handler.
    std::vector<Received> received;
    std::vector<uint32_t> receivedCommands() const;

    // Takes the place of recording; its result is the message's.
    std::function<int(const Invocation &)> handler;

  private:
    static int handle(void *busArg1, void *self, uint32_t cmd, void *buf, uint32_t len, void *out,
                      uint32_t *outLen);

    XbusCtx *context_ = nullptr;
};

// A handler that does nothing.
int ignore(void *busArg1, void *busArg2, uint32_t cmd, void *buf, uint32_t len, void *out,
           uint32_t *outLen);

// While it lives, no descriptor is left for the process.
class NoDescriptors {
  public:
    NoDescriptors() {
        const int firstFree =
            FileDescriptor(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0), "fcntl").get();
        EXPECT_EQ(0, getrlimit(RLIMIT_NOFILE, &before_));
        const rlimit none{static_cast<rlim_t>(firstFree), before_.rlim_max};
        EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &none));
    }
    ~NoDescriptors() { EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &before_)); }
    NoDescriptors(const NoDescriptors &) = delete;
    NoDescriptors &operator=(const NoDescriptors &) = delete;
    NoDescriptors(NoDescriptors &&) = delete;
    NoDescriptors &operator=(NoDescriptors &&) = delete;

  private:
    rlimit before_{};
};

// Another process that runs a part of the test. It ends with this object at the latest.
class Child {
  public:
    // The result of `part` is the exit status.
    explicit Child(const std::function<int()> &part);
    ~Child();
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;
    Child(Child &&) = delete;
    Child &operator=(Child &&) = delete;

    // Waits for the end. Returns the exit status; the negative number of a signal.
    int wait();
    void kill() const;

  private:
    pid_t pid_ = -1;
};

// Lets processes wait for each other: each pass() takes one open().
class Gate {
  public:
    void open() const;
    // Returns false when nobody has opened it for long.
    [[nodiscard]] bool pass() const;

  private:
    lanyard::Pipe pipe_;
};

// A peer that speaks for itself, without the functions of the bus.
class RawPeer {
  public:
    // Connects; see error().
    explicit RawPeer(const std::string &socketPath);

    // 0, or `errno` of what failed last.
    int error() const { return error_; }
    bool send(const Bytes &packet);
    // True when the other end is closed, now or soon.
    bool isClosed() const;

  private:
    lanyard::FileDescriptor socket_;
    int error_ = 0;
};

// A module without the functions of the bus: answers the first call with what it is told to.
class FalseModule {
  public:
    explicit FalseModule(const std::string &path);

    bool isThere() const { return isThere_; }

    void answerOnce(const std::function<Bytes(port::bus::Head)> &answer) const;

    // Returns whether the sender closes its connection after an answer.
    bool answersInVain(const std::function<Bytes(port::bus::Head)> &answer) const;

  private:
    // Returns the connection.
    FileDescriptor answerFirst(const std::function<Bytes(port::bus::Head)> &answer) const;

    lanyard::FileDescriptor listener_;
    bool isThere_ = false;
};

// A message as it travels.
Bytes packetOf(const port::bus::Head &head, const Bytes &buf = {}, const Bytes &out = {});
// The head of a sound notice.
port::bus::Head noticeHead(uint32_t command, uint32_t bufLength = 0, uint32_t outLength = 0);

// Records the bus's waits of more than a second and cuts them short while it lives, so that a test
// sees how long a time-out is without waiting for it.
class ShortWaits {
  public:
    ShortWaits();
    ~ShortWaits();
    ShortWaits(const ShortWaits &) = delete;
    ShortWaits &operator=(const ShortWaits &) = delete;
    ShortWaits(ShortWaits &&) = delete;
    ShortWaits &operator=(ShortWaits &&) = delete;

    static std::vector<std::chrono::nanoseconds> asked();
};

// A root folder of its own with the bus in it, and the log.
class XbusTest : public testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(xbusInit(), 0); }
    void TearDown() override { EXPECT_EQ(xbusDeInit(), 0); }

    std::string socketPath(uint32_t module) const;

    // Texts of the error log.
    std::vector<std::string> errors() const { return log_.texts(8); }

    TemporaryRoot root_;
    LogRecorder log_;
};

}  // namespace lanyard::test

#endif
