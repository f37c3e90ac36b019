// A management bus that a test plays, and what else the relay's service asks the system for.
//
//     TestBus bus;
//     bus.sendResult = -1;                             // what the bus does
//     bus.listens = {[] { return fromPnac(1, packet); }, ...};
//     EXPECT_EQ(0, radEapInit());                      // each wait takes the next step
//     EXPECT_THAT(bus.calls, ElementsAre("xbusInit", ...));
//     EXPECT_BYTES_EQ("03070004"_hex, bus.sent.at(0).payload());
//
// The wait after the last step ends the relay. The program never becomes a daemon, no task waits
// for another, and SIGTERM does at the end what it did before.
#ifndef LANYARD_TESTS_UNIT_EAP_BUS_H
#define LANYARD_TESTS_UNIT_EAP_BUS_H

#include <csignal>
#include <cstdint>
#include <deque>
#include <functional>
#include <iosfwd>
#include <string>
#include <sys/eventfd.h>
#include <vector>

#include <palcore.h>
#include <xbus.h>

#include "tests/support/bytes.h"
#include "tools/file_descriptor.h"

namespace lanyard::test {

// One call of xbusIoctl().
struct Sent {
    XbusCtx *ctx = nullptr;
    uint32_t module = 0;
    uint32_t command = 0;
    Bytes record = {};
    bool hasOut = false;
    uint32_t outLen = 0;
    uint32_t flags = 0;
    uint32_t reserved1 = 0;
    uint32_t reserved2 = 0;

    // The 32-bit word of the record, and what follows the three words; a shorter record fails the
    // test.
    [[nodiscard]] uint32_t word(size_t index) const;
    [[nodiscard]] Bytes payload() const;
};

void PrintTo(const Sent &sent, std::ostream *stream);

// One may be there at a time.
class TestBus {
  public:
    TestBus();
    TestBus(const TestBus &) = delete;
    TestBus &operator=(const TestBus &) = delete;
    ~TestBus();

    // What the functions answer.
    int initResult = 0;
    int registerError = 0;  // errno of a registration that fails; 0: it succeeds
    int sendResult = 0;
    int listInitResult = 0;
    int startResult = 0;                         // -1: radLibInit() fails
    int otherTasks = 0;                          // how often another task of the name is found
    std::deque<std::function<int()>> listens;    // what each wait does and returns
    bool again = false;                          // set by a step that is to be the next one too
    std::function<void()> whenDetached = [] {};  // called by daemon()

    // What was asked of them: each call with its plain arguments, such as "xbusListen 100000", and
    // what was sent.
    std::vector<std::string> calls;
    std::vector<Sent> sent;

    // What the relay is registered with.
    XbusHandler handler = nullptr;
    void *handlerArgument = nullptr;

    // A descriptor that is always readable, so that whoever waits for the bus looks at it.
    const FileDescriptor descriptor{eventfd(1, EFD_CLOEXEC), "eventfd"};

    // The context of the registration.
    [[nodiscard]] static XbusCtx *context();

  private:
    struct sigaction termBefore_ {};
};

}  // namespace lanyard::test

#endif
