// Many requests in flight, what they cost, and what the table of servers says of them.
#include <array>
#include <list>
#include <set>
#include <string>
#include <vector>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/loop.h>
#include <lanyard/radius/status.h>

#include "tests/support/test.h"
#include "tests/unit/client/loop_fixture.h"

namespace lanyard::test::loop_many_test {
namespace {

constexpr uint32_t kTwoMebibytes = 2 << 20;
constexpr size_t kMany = 1000;

// The library in a partition of that size.
class BigLibrary {
  public:
    explicit BigLibrary(uint32_t size) {
        EXPECT_EQ(0, radMemInit(size));
        EXPECT_EQ(0, radLibInit(nullptr));
        EXPECT_EQ(0, radDictLoad(nullptr));
        EXPECT_EQ(0, radConfSetTimeout("20"));
        EXPECT_EQ(0, radConfSetRetries("5"));
    }
    BigLibrary(const BigLibrary &) = delete;
    BigLibrary &operator=(const BigLibrary &) = delete;
    ~BigLibrary() {
        const PalMemPartId part = radMemPartId;
        EXPECT_EQ(0, radLibExit());
        for (const PartitionRecord &record : partitions()) {
            EXPECT_TRUE(record.id != part || record.blocksAtDestroy == 0);
        }
    }

    [[nodiscard]] size_t bytes() const {
        for (const PartitionRecord &record : partitions()) {
            if (record.id == radMemPartId) {
                return record.liveBytes;
            }
        }
        return 0;
    }
};

// What a channel holds, answered before anybody looks.
TEST_F(LoopTest, RepliesToAllAtOnce_NoneIsLost) {
    constexpr size_t kChannel = 256;
    const PlayedServer server;
    const TemporaryRoot root;
    const BigLibrary library(kTwoMebibytes);
    ASSERT_EQ(0, radConfAddAuthServ(server.host().c_str(), server.port(), -1, -1, "secret", "nas"));
    const Loop loop;
    std::vector<Answer> answers(kChannel);
    for (Answer &answer : answers) {
        ASSERT_NE(nullptr, loop.start(answer));
        server.reply(
            server.take(), 2,
            Attributes().addText(18, std::string(250, 'x')).addText(18, std::string(250, 'y')));
    }
    while (loop.run() > 0) {
    }
    for (const Answer &answer : answers) {
        EXPECT_EQ(2, answer.code);
    }
}

TEST_F(LoopTest, IdentifierOfARequestInFlight_IsPassedOver) {
    const PlayedServer server;
    const ConfiguredLibrary library({.authServers = {server.entry()}});
    const Loop loop;
    Answer slow;
    loop.start(slow);
    const ReceivedRequest first = server.take();
    for (int others = 0; others < 256; ++others) {
        Answer answer;
        loop.start(answer);
        const ReceivedRequest request = server.take();
        EXPECT_EQ(first.sourcePort, request.sourcePort);
        EXPECT_NE(first.identifier(), request.identifier());
        server.reply(request, 2);
        EXPECT_EQ(1, loop.run());
    }
    server.reply(first, 2);
    EXPECT_EQ(1, loop.run());
    EXPECT_EQ(2, slow.code);
}

TEST_F(LoopTest, ThousandRequestsInFlight_InTwoMebibytes_AreAllAnswered) {
    ScriptedServer server(kSecret, {}, newAddress());
    server.otherwise(accept([](const ReceivedRequest &request) {
        return Attributes().add(18, attributeValue(request, RAD_ATTR_USER_NAME));
    }));
    const TemporaryRoot root;
    const BigLibrary library(kTwoMebibytes);
    ASSERT_EQ(0, radConfAddAuthServ(server.host().c_str(), server.port(), -1, -1, kSecret, "nas"));
    const Loop loop;
    std::vector<Answer> answers(kMany);
    for (size_t i = 0; i < kMany; ++i) {
        const std::string name = "user-" + std::to_string(i);
        const PairList pairs(radPairNew(RAD_ATTR_USER_NAME, name.c_str(), 0));
        ASSERT_NE(nullptr, loop.start(answers[i], kAccess, pairs.get())) << i;
    }
    RadServerStatus status{};
    for (int i = 0; radServerStatusAt(i, &status) == 0 && server.host() != status.host; ++i) {
    }
    EXPECT_EQ(kMany, status.pending);
    loop.finish();
    for (size_t i = 0; i < kMany; ++i) {
        EXPECT_EQ(1, answers[i].times);
        EXPECT_EQ(2, answers[i].code);
        ASSERT_NE(nullptr, answers[i].reply);
        EXPECT_EQ("user-" + std::to_string(i), std::string(answers[i].reply->strValue));
        answers[i].reply.reset();
    }
    std::set<uint16_t> sockets;
    for (const ReceivedRequest &request : server.requests()) {
        sockets.insert(request.sourcePort);
    }
    EXPECT_EQ(4U, sockets.size()) << "256 identifiers each";
}

TEST_F(LoopTest, SizesInThePartition_AreThoseOfTheHeader) {
    const PlayedServer server;
    const TemporaryRoot root;
    const BigLibrary library(kTwoMebibytes);
    ASSERT_EQ(0, radConfAddAuthServ(server.host().c_str(), server.port(), -1, -1, kSecret, "nas"));
    const size_t before = library.bytes();
    const Loop loop;
    EXPECT_LT(library.bytes() - before, 4096U);
    std::array<Answer, 2> answers;
    loop.start(answers[0]);
    const size_t first = library.bytes();
    loop.start(answers[1]);
    EXPECT_LT(library.bytes() - first, 700 + server.take().bytes.size());
}

TEST_F(LoopTest, IdleSocket_IsClosedAfterHalfAMinute) {
    const PlayedServer server;
    const ConfiguredLibrary library({.authServers = {server.entry()}});
    const Loop loop;
    const size_t before = openDescriptors();
    expectAccepted(loop, server);
    EXPECT_EQ(before + 1, openDescriptors());
    clock_.advance(25);
    expectAccepted(loop, server);
    clock_.advance(25);
    EXPECT_EQ(0, loop.run());
    EXPECT_EQ(before + 1, openDescriptors());
    clock_.advance(6);
    EXPECT_EQ(0, loop.run());
    EXPECT_EQ(before, openDescriptors());
}

TEST_F(LoopTest, RoundTrips_MedianAndPercentile) {
    const PlayedServer server;
    const ConfiguredLibrary library({.authServers = {server.entry()}});
    const Loop loop;
    EXPECT_EQ(0U, statusOf(server).medianMicroseconds);
    for (int hundredths = 1; hundredths <= 100; ++hundredths) {
        Answer answer;
        loop.start(answer);
        clock_.advance(hundredths / 100.0);
        server.reply(server.take(), 2);
        EXPECT_EQ(1, loop.run());
    }
    // The last 64 took 0.37 to 1.00 s.
    const RadServerStatus status = statusOf(server);
    EXPECT_LE(680000U, status.medianMicroseconds);
    EXPECT_GT(800000U, status.medianMicroseconds);
    EXPECT_LE(960000U, status.slowMicroseconds);
    EXPECT_GT(1100000U, status.slowMicroseconds);
    EXPECT_EQ(100U, status.requests);
    EXPECT_EQ(100U, status.accepts);
}

TEST_F(LoopTest, TwoRoundTrips_PercentileIsTheSlowerOne) {
    const PlayedServer server;
    const ConfiguredLibrary library({.authServers = {server.entry()}});
    const Loop loop;
    for (const double seconds : {0.1, 1.0}) {
        Answer answer;
        loop.start(answer);
        clock_.advance(seconds);
        server.reply(server.take(), 2);
        EXPECT_EQ(1, loop.run());
    }
    EXPECT_LE(1000000U, statusOf(server).slowMicroseconds);
}

TEST_F(LoopTest, StatusOfNoServer_IsNone) {
    RadServerStatus status{};
    EXPECT_EQ(-1, radServerStatusAt(0, nullptr));
    EXPECT_EQ(-1, radServerStatusAt(-1, &status));
    EXPECT_EQ(-1, radServerStatusAt(32, &status));
}

TEST_F(LoopTest, TableOfServers_KeepsThoseThatWereAskedLast) {
    std::list<PlayedServer> servers(40);
    const ConfiguredLibrary library;
    for (const PlayedServer &server : servers) {
        ASSERT_EQ(0, radConfAddAuthServ(server.host().c_str(), server.port(), kPlenty, 0, kSecret,
                                        nullptr));
        const Loop loop;
        expectAccepted(loop, server);
        radConfDelAuthServ();
    }
    EXPECT_EQ(0U, statusOf(servers.front()).requests);
    uint64_t known = 0;
    for (const PlayedServer &server : servers) {
        known += statusOf(server).requests;
    }
    EXPECT_EQ(32U, known);
    EXPECT_EQ(1U, statusOf(servers.back()).accepts);
}

}  // namespace
}  // namespace lanyard::test::loop_many_test
