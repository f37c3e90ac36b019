#include "tests/unit/conf/conf_fixture.h"

#include <arpa/inet.h>
#include <cstring>
#include <map>
#include <netdb.h>
#include <ostream>

#include <lanyard/radius/frame.h>

#include "tests/support/failing_partition.h"

namespace {

std::map<std::string, uint16_t> services;  // UDP ports by name

std::string shown(const char *text) {
    return text != nullptr ? '"' + std::string(text) + '"' : "NULL";
}

bool sameText(const char *left, const char *right) {
    return left != nullptr && right != nullptr ? std::strcmp(left, right) == 0 : left == right;
}

}  // namespace

// Stands in for the C library's, whose parameters have reserved names: the answer depends on the
// test alone.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
int getservbyname_r(const char *name, const char *protocol, servent *entry, char * /*buffer*/,
                    size_t /*size*/, servent **found) {
    const auto service = services.find(name);
    *found = nullptr;
    if (service == services.end() || protocol == nullptr || std::strcmp(protocol, "udp") != 0) {
        return 0;
    }
    *entry = {};
    entry->s_port = htons(service->second);
    *found = entry;
    return 0;
}

void PrintTo(const RadServer &server, std::ostream *stream) {
    *stream << "{host " << shown(server.host) << ", port " << server.port << ", timeout "
            << server.timeout << ", retries " << server.retries << ", secret "
            << shown(server.secret) << ", extra " << shown(server.extra) << ", row "
            << server.rowKey << ' ' << server.rowId << '}';
}

namespace lanyard::test {

testing::Matcher<const RadServer &> Holds(const Slot &expected) {
    const auto matches = [expected](const RadServer &server) {
        return sameText(expected.host, server.host) && expected.port == server.port &&
               expected.timeout == server.timeout && expected.retries == server.retries &&
               sameText(expected.secret, server.secret) && sameText(expected.extra, server.extra) &&
               expected.rowKey == server.rowKey && expected.rowId == server.rowId;
    };
    std::string text = "holds host " + shown(expected.host) + ", port " +
                       std::to_string(expected.port) + ", timeout " +
                       std::to_string(expected.timeout) + ", retries " +
                       std::to_string(expected.retries) + ", secret " + shown(expected.secret) +
                       ", extra " + shown(expected.extra) + ", row " +
                       std::to_string(expected.rowKey) + ' ' + std::to_string(expected.rowId);
    return testing::ResultOf(text, matches, testing::IsTrue());
}

void ConfTest::SetUp() {
    services.clear();
    ASSERT_EQ(0, radLibInit(nullptr));
    // Whatever a test finds in a free slot it owes to a delete.
    ASSERT_EQ(0, radDeconfigure());
    log.clear();
}

void ConfTest::TearDown() {
    stopFailing();
    EXPECT_EQ(0, radDeconfigure());
    EXPECT_EQ(0U, liveBlocks());
    EXPECT_EQ(0, radLibExit());
    services.clear();
}

void ConfTest::addService(const std::string &name, uint16_t port) {
    services[name] = port;
}

std::vector<RadServer> ConfTest::slots(uint32_t type) {
    const auto *servers = static_cast<const RadServer *>(
        radConfGet(type == RAD_SERVER_AUTH ? RAD_CONF_AUTH_SERVERS : RAD_CONF_ACCT_SERVERS));
    EXPECT_NE(nullptr, servers);
    return servers != nullptr ? std::vector<RadServer>(servers, servers + RAD_SERVERS_MAX)
                              : std::vector<RadServer>(RAD_SERVERS_MAX);
}

bool ConfTest::isSet(uint32_t option) {
    const std::vector<LogLine> before = log.lines();
    const bool set = radConfGet(option) != nullptr;
    log.clear();
    for (const LogLine &line : before) {
        log.add(line);
    }
    return set;
}

void ConfTest::addAuthServers(int count) {
    for (int index = 0; index < count; ++index) {
        const std::string host = "h" + std::to_string(index);
        ASSERT_EQ(0, radConfAddAuthServ(host.c_str(), 1000 + index, -1, -1, "s3cr3t", nullptr));
    }
    log.clear();
}

void ConfTest::expectSilence() {
    EXPECT_LOG(log);
    log.clear();
}

}  // namespace lanyard::test
