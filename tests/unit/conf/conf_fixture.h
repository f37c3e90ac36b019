// What the tests of the configuration start from: memory, an empty configuration, an empty services
// database in place of the system's, and a record of the log. At the end nothing may be left.
#ifndef LANYARD_TESTS_UNIT_CONF_CONF_FIXTURE_H
#define LANYARD_TESTS_UNIT_CONF_CONF_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iosfwd>
#include <string>
#include <vector>

#include <lanyard/radius/conf.h>

#include "tests/support/log_recorder.h"

namespace lanyard::test {

// What a test expects of a slot; null for a text that is absent.
struct Slot {
    const char *host = nullptr;
    int port = 0;
    int timeout = -1;
    int retries = -1;
    const char *secret = nullptr;
    const char *extra = nullptr;
    int rowKey = -1;
    int rowId = -1;
};

// What a slot holds after its server was deleted.
inline constexpr Slot kFreeSlot = {.port = 65535};

// Matches a slot of a server list.
testing::Matcher<const RadServer &> Holds(const Slot &expected);

class ConfTest : public testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    // Makes the services database know the port of "radius" or "radacct" over "udp".
    static void addService(const std::string &name, uint16_t port);

    // All eight slots of a list that is set; fails the test and returns free slots when it is not.
    static std::vector<RadServer> slots(uint32_t type);

    // Whether a list is set, without a trace in the log.
    bool isSet(uint32_t option);

    // Adds authentication servers "h0", "h1", ... on ports 1000, 1001, ...
    void addAuthServers(int count);

    // Expects that nothing at all was logged since the last look, and forgets it.
    void expectSilence();

    LogRecorder log;
};

}  // namespace lanyard::test

// How failures show a slot; in the namespace of the record, where GoogleTest looks for it.
void PrintTo(const RadServer &server, std::ostream *stream);

#endif
