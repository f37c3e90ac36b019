// Which server a request of a loop asks, and what is remembered of servers.
#include <array>
#include <cerrno>
#include <filesystem>
#include <optional>

#include <lanyard/radius/error.h>
#include <lanyard/radius/loop.h>
#include <lanyard/radius/status.h>

#include "tests/support/test.h"
#include "tests/unit/client/loop_fixture.h"

namespace lanyard::test::loop_servers_test {
namespace {

using testing::ElementsAre;

// --- Fail-over ---------------------------------------------------------------------------------------

TEST_F(LoopTest, SilentServer_IsLeftAfterTwoSends) {
    const PlayedServer first;
    const PlayedServer second;
    const ConfiguredLibrary library({.authServers = {first.entry(0, 5), second.entry()}});
    const Loop loop;
    Answer answer;
    loop.start(answer);
    for (int runs = 0; runs < 10; ++runs) {
        EXPECT_EQ(0, loop.run());
    }
    const ReceivedRequest sent = first.take();
    EXPECT_EQ(sent.bytes, first.take().bytes);
    EXPECT_EQ(std::nullopt, first.poll());
    const ReceivedRequest request = second.take();
    EXPECT_NE(sent.authenticator(), request.authenticator());
    second.reply(request, 2);
    EXPECT_EQ(1, loop.run());
    EXPECT_EQ(2, answer.code);
    EXPECT_EQ(0, statusOf(first).alive);
    EXPECT_EQ(1, statusOf(second).alive);
}

TEST_F(LoopTest, ServerAlone_GetsAllItsRetries) {
    const PlayedServer server;
    const ConfiguredLibrary library(
        {.authServers = {{.host = "nowhere", .port = 1812}, server.entry(0, 4)}});
    const Loop loop;
    Answer answer;
    loop.start(answer);
    loop.finish();
    EXPECT_EQ(-1, answer.code);
    EXPECT_EQ(5, answer.tries);
}

// Both are alive to others, and slow.
TEST_F(LoopTest, LastServer_GetsItsWholeTimeAlthoughTheFirstIsAlive) {
    const PlayedServer first;
    const PlayedServer second;
    const ConfiguredLibrary library({.authServers = {first.entry(), second.entry()}});
    const Loop loop;
    expectAccepted(loop, first);
    Answer answer;
    loop.start(answer);
    first.send(first.take(), "00"_hex);  // for somebody else, as it were
    EXPECT_EQ(0, loop.run());
    clock_.advance(kPlenty);
    EXPECT_EQ(0, loop.run());
    const ReceivedRequest request = second.take();
    clock_.advance(kPlenty - 1);
    EXPECT_EQ(0, loop.run());
    EXPECT_EQ(1, statusOf(first).alive);
    second.reply(request, 2);
    EXPECT_EQ(1, loop.run());
    EXPECT_EQ(2, answer.code);
}

TEST_F(LoopTest, RefusingServer_IsLeftAtOnce) {
    const RefusedPort first(newAddress());
    const PlayedServer second;
    ServerEntry refusing;
    refusing.host = first.host();
    refusing.port = first.port();
    const ConfiguredLibrary library({.authServers = {refusing, second.entry()}, .timeout = "20"});
    const Loop loop;
    Answer answer;
    loop.start(answer);
    EXPECT_TRUE(loop.isReadable(60000));
    EXPECT_EQ(0, loop.run());
    second.reply(second.take(), 2);
    EXPECT_EQ(1, loop.run());
    EXPECT_EQ(2, answer.code);
    expectAccepted(loop, second);
}

TEST_F(LoopTest, RefusingServerAlone_IsAskedToTheEnd) {
    const RefusedPort port(newAddress());
    ServerEntry refusing;
    refusing.host = port.host();
    refusing.port = port.port();
    refusing.retries = 2;
    const ConfiguredLibrary library({.authServers = {refusing}, .timeout = "1"});
    const Loop loop;
    Answer answer;
    loop.start(answer);
    for (int sends = 1; sends <= 3; ++sends) {
        EXPECT_EQ(0, answer.times);
        loop.run(20);
        clock_.advance(1);
        loop.run();
    }
    EXPECT_EQ(1, answer.times);
    EXPECT_EQ(-1, answer.code);
    EXPECT_EQ(3, answer.tries);
    EXPECT_EQ(RAD_STEP_WAIT + 0, answer.step);
    EXPECT_EQ(ECONNREFUSED, answer.reason);
}

TEST_F(LoopTest, ServerWithoutARoute_IsLeftAtOnce) {
    for (const char *call : {"connect", "send"}) {
        const PlayedServer first;
        const PlayedServer second;
        const ConfiguredLibrary library({.authServers = {first.entry(), second.entry()}});
        const Loop loop;
        Answer answer;
        const FailingCall failure(call, ENETUNREACH);
        loop.start(answer);
        EXPECT_TRUE(failure.happened());
        EXPECT_EQ(std::nullopt, first.poll());
        second.reply(second.take(), 2);
        EXPECT_EQ(1, loop.run());
        EXPECT_EQ(2, answer.code);
        EXPECT_EQ(0, statusOf(first).alive);
    }
}

TEST_F(LoopTest, FullSendQueue_IsALossLikeAnyOther) {
    const PlayedServer server;
    const ConfiguredLibrary library({.authServers = {server.entry(kPlenty, 1)}});
    const Loop loop;
    Answer answer;
    const FailingCall failure("send", ENOBUFS);
    loop.start(answer);
    EXPECT_TRUE(failure.happened());
    EXPECT_EQ(std::nullopt, server.poll());
    clock_.advance(3);
    EXPECT_EQ(0, loop.run());
    server.reply(server.take(), 2);
    EXPECT_EQ(1, loop.run());
    EXPECT_EQ(2, answer.code);
}

TEST_F(LoopTest, RequestsOfARefusedSocket_GoOnTogether) {
    const RefusedPort first(newAddress());
    const PlayedServer second;
    ServerEntry refusing;
    refusing.host = first.host();
    refusing.port = first.port();
    const ConfiguredLibrary library({.authServers = {refusing, second.entry()}, .timeout = "20"});
    const Loop loop;
    std::array<Answer, 8> answers;
    for (Answer &answer : answers) {
        loop.start(answer);
    }
    EXPECT_TRUE(loop.isReadable(60000));
    EXPECT_EQ(0, loop.run());
    for (size_t i = 0; i < answers.size(); ++i) {
        second.reply(second.take(), 2);
    }
    loop.finish();
    for (const Answer &answer : answers) {
        EXPECT_EQ(2, answer.code);
    }
}

TEST_F(LoopTest, NoServerWithAnAddress_EndsWithThatReason) {
    const ConfiguredLibrary library({.authServers = {{.host = "nowhere", .port = 1812}}});
    const Loop loop;
    Answer answer;
    loop.start(answer);
    EXPECT_EQ(1, loop.run());
    EXPECT_EQ(-1, answer.code);
    EXPECT_EQ(RAD_STEP_RESOLVE + 0, answer.step);
    EXPECT_EQ(RAD_REASON_HOST_UNKNOWN + 0, answer.reason);
    // Without a hosts file, and without a way to make one, the resolver says 255.255.255.255.
    std::filesystem::remove_all(library.root().path("/var"));
    const Loop later;
    later.start(answer);
    EXPECT_EQ(1, later.run());
    EXPECT_EQ(RAD_REASON_HOST_UNKNOWN + 0, answer.reason);
}

TEST_F(LoopTest, HostNames_AreResolvedOnceAMinute) {
    const PlayedServer first;
    const PlayedServer second;
    ServerEntry named = first.entry();
    named.host = "radius";
    std::optional<ResolverEntry> address(std::in_place, "radius", first.host());
    const ConfiguredLibrary library({.authServers = {named, second.entry()}});
    const Loop loop;
    expectAccepted(loop, first);
    address.reset();
    expectAccepted(loop, first);
    clock_.advance(61);
    expectAccepted(loop, second);
    address.emplace("radius", first.host());
    clock_.advance(61);
    expectAccepted(loop, first);
}

TEST_F(LoopTest, NobodyToAsk_IsLookedUpAgainAfterASecond) {
    const PlayedServer server;
    ServerEntry named = server.entry();
    named.host = "radius";
    const ConfiguredLibrary library({.authServers = {named}});
    std::optional<ResolverEntry> address;
    std::optional<HostName> renamed;
    const Loop loop;
    const auto expectFailure = [&](int32_t reason) {
        Answer answer;
        loop.start(answer);
        EXPECT_EQ(1, loop.run());
        EXPECT_EQ(reason, answer.reason);
    };
    expectFailure(RAD_REASON_HOST_UNKNOWN);
    address.emplace("radius", server.host());
    renamed.emplace("unknown");
    clock_.advance(0.5);
    const int asked = resolverCalls();
    expectFailure(RAD_REASON_HOST_UNKNOWN);
    EXPECT_EQ(asked, resolverCalls());
    clock_.advance(0.6);
    expectFailure(RAD_REASON_NO_OWN_ADDRESS);
    renamed.emplace("gateway");
    clock_.advance(1.1);
    expectAccepted(loop, server);
    renamed.emplace("unknown");
    clock_.advance(59);
    expectAccepted(loop, server);
}

// --- Dead servers ------------------------------------------------------------------------------------

// One thing changes at a time.
TEST_F(LoopTest, ChangedConfiguration_IsThatOfTheNextRequest) {
    const std::string host = newAddress();
    const PlayedServer server(host);
    const PlayedServer otherPort(host);
    const ConfiguredLibrary library({.timeout = "0", .retries = "0"});
    radOptionSet(RAD_OPTION_DEAD_TIME, -1);
    const Loop loop;
    ServerEntry entry = server.entry(-1, -1);
    entry.extra = "gateway";
    const auto configure = [&entry] {
        radConfDelAuthServ();
        EXPECT_EQ(0, radConfAddAuthServ(entry.host.c_str(), entry.port, entry.timeout,
                                        entry.retries, entry.secret.c_str(), entry.extra->c_str()));
    };
    // A request that nobody answers, as far as it gets at once.
    const auto ask = [&loop](Answer &answer) {
        loop.start(answer);
        for (int runs = 0; runs < 10; ++runs) {
            loop.run();
        }
    };
    const auto expectTries = [&ask](int tries) {
        Answer answer;
        ask(answer);
        EXPECT_EQ(tries, answer.tries);
    };
    constexpr int kWaits = 0;
    configure();
    expectTries(1);
    EXPECT_EQ(0, radConfDelRetries());
    EXPECT_EQ(0, radConfSetRetries("2"));
    expectTries(3);
    entry.retries = 1;
    configure();
    expectTries(2);
    EXPECT_EQ(0, radConfDelTimeout());
    EXPECT_EQ(0, radConfSetTimeout("20"));
    expectTries(kWaits);
    entry.timeout = 0;
    configure();
    expectTries(2);
    entry.port = otherPort.port();
    configure();
    expectTries(2);
    EXPECT_NE(std::nullopt, otherPort.poll());
    entry.extra = "roof";
    configure();
    while (otherPort.poll()) {
    }
    expectTries(2);
    EXPECT_BYTES_EQ(fromText("roof"), attributeValue(otherPort.take(), RAD_ATTR_NAS_IDENTIFIER));
    entry.timeout = kPlenty;
    configure();
    expectTries(kWaits);
    entry.secret = "another";
    configure();
    while (otherPort.poll()) {
    }
    Answer answer;
    loop.start(answer);
    const ReceivedRequest request = otherPort.take();
    otherPort.send(request, makeReply(2, request, "another"));
    EXPECT_EQ(1, loop.run());
    EXPECT_EQ(2, answer.code);
    entry.host = "nowhere";
    configure();
    ask(answer);
    EXPECT_EQ(RAD_REASON_HOST_UNKNOWN + 0, answer.reason);
}

TEST_F(LoopTest, DeadServer_IsAskedLastForAMinute_ThenByOneRequest) {
    const PlayedServer first;
    const PlayedServer second;
    const ConfiguredLibrary library({.authServers = {first.entry(), second.entry()}});
    const Loop loop;
    Answer lost;
    loop.start(lost);
    clock_.advance(3);
    EXPECT_EQ(0, loop.run());
    second.reply(second.take(), 2);
    EXPECT_EQ(1, loop.run());
    first.take();
    EXPECT_EQ(0, statusOf(first).alive);
    clock_.advance(59);
    expectAccepted(loop, second);
    EXPECT_EQ(59U, statusOf(first).deadSeconds);
    EXPECT_EQ(std::nullopt, first.poll());
    clock_.advance(2);
    Answer probing;
    loop.start(probing);
    expectAccepted(loop, second);
    const ReceivedRequest probe = first.take();
    EXPECT_EQ(std::nullopt, first.poll()) << "one request alone";
    first.reply(probe, 3);
    EXPECT_EQ(1, loop.run());
    EXPECT_EQ(3, probing.code);
    EXPECT_EQ(1, statusOf(first).alive);
    expectAccepted(loop, first);
}

TEST_F(LoopTest, ProbeThatIsNotAnswered_IsSentOnceAndCostsAnotherDeadTime) {
    const PlayedServer first;
    const PlayedServer second;
    const ConfiguredLibrary library({.authServers = {first.entry(0, 3), second.entry()}});
    radOptionSet(RAD_OPTION_DEAD_TIME, 10);
    const Loop loop;
    makeDead(loop, first, second);
    clock_.advance(10);
    Answer answer;
    loop.start(answer);
    for (int runs = 0; runs < 10; ++runs) {
        EXPECT_EQ(0, loop.run());
    }
    first.take();
    EXPECT_EQ(std::nullopt, first.poll());
    second.reply(second.take(), 2);
    EXPECT_EQ(1, loop.run());
    EXPECT_EQ(2, answer.code);
    clock_.advance(9);
    expectAccepted(loop, second);
    EXPECT_EQ(std::nullopt, first.poll());
}

TEST_F(LoopTest, NegativeDeadTime_RemembersNothing) {
    const PlayedServer first;
    const PlayedServer second;
    const ConfiguredLibrary library({.authServers = {first.entry(0), second.entry()}});
    radOptionSet(RAD_OPTION_DEAD_TIME, -1);
    const Loop loop;
    for (int requests = 0; requests < 2; ++requests) {
        Answer answer;
        loop.start(answer);
        EXPECT_EQ(0, loop.run());
        first.take();
        second.reply(second.take(), 2);
        EXPECT_EQ(1, loop.run());
    }
    EXPECT_EQ(1, statusOf(first).alive);
}

TEST_F(LoopTest, ServerThatIsSilentAboutOneRequestOnly_StaysAlive) {
    const PlayedServer first;
    const PlayedServer second;
    const ConfiguredLibrary library({.authServers = {first.entry(kPlenty, 0), second.entry()}});
    const Loop loop;
    Answer ignored;
    loop.start(ignored);
    first.take();
    expectAccepted(loop, first);
    clock_.advance(3);
    EXPECT_EQ(0, loop.run());
    second.reply(second.take(), 2);
    EXPECT_EQ(1, loop.run());
    EXPECT_EQ(1, statusOf(first).alive);
    expectAccepted(loop, first);
}

TEST_F(LoopTest, AllServersDead_AreAskedInTheirOrder) {
    const PlayedServer first;
    const PlayedServer second;
    const ConfiguredLibrary library({.authServers = {first.entry(0), second.entry(0)}});
    const Loop loop;
    for (int requests = 1; requests <= 2; ++requests) {
        Answer answer;
        loop.start(answer);
        loop.finish();
        EXPECT_EQ(-1, answer.code);
        first.take();
        second.take();
    }
}

TEST_F(LoopTest, StatusServer_AsksADeadServerInPlaceOfARequest) {
    const PlayedServer first;
    const PlayedServer second;
    const ConfiguredLibrary library({.authServers = {first.entry(0), second.entry()}});
    radOptionSet(RAD_OPTION_STATUS_SERVER, 1);
    const Loop loop;
    makeDead(loop, first, second);
    expectAccepted(loop, second);
    EXPECT_EQ(std::nullopt, first.poll());
    clock_.advance(61);
    Answer answer;
    loop.start(answer);
    const ReceivedRequest probe = first.take();
    EXPECT_EQ(RAD_CODE_STATUS_SERVER + 0, probe.code());
    EXPECT_THAT(attributeTypes(probe), ElementsAre(4, 80));
    EXPECT_TRUE(messageAuthenticatorIsValid(probe, kSecret));
    first.reply(probe, 2);
    second.reply(second.take(), 2);
    EXPECT_EQ(1, loop.run()) << "the probe is nobody's";
    EXPECT_EQ(1, answer.times);
    EXPECT_EQ(1, statusOf(first).alive);
    EXPECT_EQ(0, loop.run(-1));
}

// --- State -------------------------------------------------------------------------------------------

TEST_F(LoopTest, State_GoesToTheServerThatGaveIt) {
    const PlayedServer first;
    const PlayedServer second;
    const ConfiguredLibrary library({.authServers = {first.entry(0), second.entry()}});
    const Loop loop;
    Answer answer;
    loop.start(answer);
    EXPECT_EQ(0, loop.run());
    first.take();
    second.reply(second.take(), 11, Attributes().addText(24, "second's"));
    EXPECT_EQ(1, loop.run());
    answer.reply.reset();
    clock_.advance(61);
    Answer other;
    loop.start(other);
    first.reply(first.take(), 2);
    EXPECT_EQ(1, loop.run());
    EXPECT_EQ(1, statusOf(first).alive) << "and it is the first again";

    loop.start(answer, kAccess, withState("second's").get());
    EXPECT_EQ(std::nullopt, first.poll());
    second.reply(second.take(), 2);
    EXPECT_EQ(1, loop.run());
    EXPECT_EQ(2, answer.code);

    loop.start(answer, kAccess, withState("nobody's").get());
    EXPECT_EQ(std::nullopt, second.poll());
    first.reply(first.take(), 3);
    EXPECT_EQ(1, loop.run());
}

TEST_F(LoopTest, StateOfADeadServer_GoesToAnother) {
    const PlayedServer first;
    const PlayedServer second;
    const ConfiguredLibrary library({.authServers = {first.entry(0), second.entry()}});
    const Loop loop;
    Answer answer;
    loop.start(answer);
    first.reply(first.take(), 11, Attributes().addText(24, "first's"));
    EXPECT_EQ(1, loop.run());
    answer.reply.reset();
    makeDead(loop, first, second);
    loop.start(answer, kAccess, withState("first's").get());
    second.reply(second.take(), 3);
    EXPECT_EQ(1, loop.run());
    EXPECT_EQ(3, answer.code);
}

}  // namespace
}  // namespace lanyard::test::loop_servers_test
