// Requests of a loop: what they are answered, how they are sent again, what counts as a reply.
#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/error.h>
#include <lanyard/radius/loop.h>

#include "tests/support/test.h"
#include "tests/unit/client/loop_fixture.h"

namespace lanyard::test::loop_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

TEST_F(LoopTest, EachKindOfReply_EndsWithItsCodeAndPairs) {
    struct Row {
        int request;
        uint8_t reply;
    };
    for (const Row &row : {Row{kAccess, 2}, Row{kAccess, 3}, Row{kAccess, 11}, Row{kAccounting, 5},
                           Row{kAccess, 99}}) {
        const PlayedServer server;
        const ConfiguredLibrary library(
            {.authServers = {server.entry()}, .acctServers = {server.entry()}});
        const Loop loop;
        Answer answer;
        RadRequest *request = loop.start(answer, row.request);
        ASSERT_NE(nullptr, request);
        server.reply(server.take(), row.reply, Attributes().addText(18, "hello"));
        EXPECT_EQ(0, answer.times);
        EXPECT_EQ(1, loop.run());
        EXPECT_EQ(1, answer.times);
        EXPECT_EQ(row.reply, answer.code);
        EXPECT_EQ(request, answer.request);
        EXPECT_THAT(attrNums(answer.reply.get()), ElementsAre(18));
        EXPECT_EQ(RAD_STEP_REPLY + 0, answer.step);
        EXPECT_EQ(0, answer.reason);
        EXPECT_EQ(1, answer.tries);
        answer.reply.reset();
    }
}

TEST_F(LoopTest, Request_IsThatOfTheWaitingCall) {
    const PlayedServer server;
    ServerEntry named = server.entry();
    named.extra = "lobby";
    const ConfiguredLibrary library({.authServers = {named}, .acctServers = {server.entry()}});
    const Loop loop;
    Answer answer;
    loop.start(answer);
    const ReceivedRequest login = server.take();
    EXPECT_EQ(1, login.code());
    EXPECT_THAT(attributeTypes(login), ElementsAre(1, 32, 80));
    EXPECT_TRUE(messageAuthenticatorIsValid(login, kSecret));
    loop.start(answer, kAccounting);
    const ReceivedRequest record = server.take();
    EXPECT_THAT(attributeTypes(record), ElementsAre(1, 4));
    EXPECT_TRUE(accountingAuthenticatorIsValid(record, kSecret));
}

TEST_F(LoopTest, PairsOfTheCaller_AreLeftAlone) {
    const PlayedServer server;
    const ConfiguredLibrary library({.authServers = {server.entry()}});
    const Loop loop;
    Answer answer;
    PairList pairs = nemo();
    loop.start(answer, kAccess, pairs.get());
    EXPECT_THAT(attrNums(pairs.get()), ElementsAre(1));
    pairs.reset();
    server.reply(server.take(), 2);
    EXPECT_EQ(1, loop.run());
    EXPECT_EQ(2, answer.code);
}

// The number beside the value says nothing of how much of it counts.
TEST_F(LoopTest, PairOfTheProgramsOwnType_ReachesItsHookWhole) {
    constexpr int32_t kOwnType = 7;
    const Bytes value = "6f776e00ff"_hex;
    const PlayedServer server;
    const ConfiguredLibrary library({.authServers = {server.entry()}});
    const Hooks hooks([&](uint8_t *place, uint8_t *length, const RadPair *pair,
                          const char * /*secret*/, RadPacket * /*request*/) {
        if (pair->type != kOwnType) {
            return 1;
        }
        *length = static_cast<uint8_t>(2 + value.size());
        if (place != nullptr) {
            std::copy_n(pair->strValue, value.size(), place);
        }
        return 0;
    });
    const PairList pair(radPairNew(RAD_ATTR_STATE, value.data(), static_cast<int>(value.size())));
    pair->type = kOwnType;
    pair->numValue = 1;
    const Loop loop;
    Answer answer;
    loop.start(answer, kAccess, pair.get());
    EXPECT_BYTES_EQ(value, attributeValue(server.take(), RAD_ATTR_STATE));
}

TEST_F(LoopTest, MissingArguments_StartNothing) {
    const PlayedServer server;
    const ConfiguredLibrary library({.authServers = {server.entry()}});
    const Loop loop;
    const PairList pairs = nemo();
    EXPECT_EQ(nullptr, radRequestStart(nullptr, kAccess, pairs.get(), Answer::note, nullptr));
    EXPECT_EQ(nullptr, radRequestStart(loop.get(), kAccess, nullptr, Answer::note, nullptr));
    EXPECT_EQ(nullptr, radRequestStart(loop.get(), kAccess, pairs.get(), nullptr, nullptr));
    EXPECT_EQ(-1, radLoopDescriptor(nullptr));
    EXPECT_EQ(-1, radLoopRun(nullptr, 0));
    radLoopDestroy(nullptr);
    radRequestCancel(nullptr);
    EXPECT_EQ(std::nullopt, server.poll());
}

TEST_F(LoopTest, RequestThatCannotBegin_EndsWithTheNextRun) {
    const ConfiguredLibrary library;
    const Loop loop;
    for (const int code : {kAccess, 99}) {
        Answer answer;
        const LogRecorder log;
        ASSERT_NE(nullptr, loop.start(answer, code));
        EXPECT_PROBLEMS(log, code == kAccess
                                 ? "error radBuildAndSendReq: RADIUS is not configured properly"
                                 : "error radBuildAndSendReq: Invalid Request Code 99");
        EXPECT_EQ(0, answer.times) << "not from within the start";
        EXPECT_TRUE(loop.isReadable());
        EXPECT_EQ(1, loop.run());
        EXPECT_EQ(-1, answer.code);
        EXPECT_EQ(nullptr, answer.reply);
        EXPECT_EQ(RAD_STEP_PREPARE + 0, answer.step);
        EXPECT_EQ(code == kAccess ? RAD_REASON_NOT_CONFIGURED + 0 : RAD_REASON_REQUEST_CODE + 0,
                  answer.reason);
        EXPECT_FALSE(loop.isReadable());
    }
}

TEST_F(LoopTest, LoopWithNothingInFlight_RunsForNoTime) {
    const ConfiguredLibrary library;
    const Loop loop;
    EXPECT_EQ(0, loop.run(0));
    EXPECT_EQ(0, loop.run(-1));
    EXPECT_FALSE(loop.isReadable());
}

TEST_F(LoopTest, Descriptor_IsReadableWhenThereIsSomethingToDo) {
    const PlayedServer server;
    const ConfiguredLibrary library({.authServers = {server.entry(1)}});
    const Loop loop;
    const int descriptor = radLoopDescriptor(loop.get());
    Answer answer;
    loop.start(answer);
    EXPECT_FALSE(loop.isReadable());
    const ReceivedRequest request = server.take();
    server.reply(request, 2);
    EXPECT_TRUE(loop.isReadable());
    EXPECT_EQ(1, loop.run());
    EXPECT_FALSE(loop.isReadable());

    loop.start(answer);
    EXPECT_FALSE(loop.isReadable());
    EXPECT_TRUE(loop.isReadable(60000)) << "the wait is over";
    while (answer.times == 1) {
        EXPECT_TRUE(loop.isReadable(60000));
        EXPECT_LE(0, loop.run());
    }
    EXPECT_EQ(-1, answer.code);
    EXPECT_FALSE(loop.isReadable());
    EXPECT_EQ(descriptor, radLoopDescriptor(loop.get()));
}

// --- Sending again -----------------------------------------------------------------------------------

TEST_F(LoopTest, WaitsBetweenSends_DoubleFromTwoSecondsUpToTheTimeout) {
    const PlayedServer server;
    const ConfiguredLibrary library({.authServers = {server.entry(5, 3)}});
    const Loop loop;
    Answer answer;
    loop.start(answer);
    const ReceivedRequest first = server.take();
    struct Wait {
        double shortest;
        double longest;
    };
    for (const Wait &wait : {Wait{1.8, 2.2}, Wait{3.6, 4.4}, Wait{4.9, 5.0}}) {
        clock_.advance(wait.shortest - 0.1);
        EXPECT_EQ(0, loop.run());
        EXPECT_EQ(std::nullopt, server.poll());
        clock_.advance(wait.longest - wait.shortest + 0.1);
        EXPECT_EQ(0, loop.run());
        EXPECT_EQ(first.bytes, server.take().bytes) << "the same packet";
    }
    clock_.advance(5);
    EXPECT_EQ(1, loop.run());
    EXPECT_EQ(-1, answer.code);
    EXPECT_EQ(4, answer.tries);
    EXPECT_EQ(RAD_STEP_WAIT + 0, answer.step);
    EXPECT_EQ(RAD_REASON_NO_REPLY + 0, answer.reason);
    const RadServerStatus status = statusOf(server);
    EXPECT_EQ(1U, status.requests);
    EXPECT_EQ(3U, status.retransmissions);
    EXPECT_EQ(4U, status.timeouts);
    EXPECT_EQ(0U, status.pending);
    EXPECT_EQ(0, status.alive);
}

TEST_F(LoopTest, OnlyServerWithoutRetries_GetsItsWholeTimeout) {
    const PlayedServer server;
    const ConfiguredLibrary library({.authServers = {server.entry(9, 0)}});
    const Loop loop;
    Answer answer;
    loop.start(answer);
    clock_.advance(8.9);
    EXPECT_EQ(0, loop.run());
    clock_.advance(0.1);
    EXPECT_EQ(1, loop.run());
    EXPECT_EQ(-1, answer.code);
    EXPECT_EQ(1, answer.tries);
}

TEST_F(LoopTest, WaitingRun_SendsAgainByItself) {
    ScriptedServer server(kSecret, {silence(), accept()}, newAddress());
    const ConfiguredLibrary library({.authServers = {serverEntry(server, 1, 3)}});
    const Loop loop;
    Answer answer;
    loop.start(answer);
    EXPECT_EQ(1, loop.run(-1));
    EXPECT_EQ(2, answer.code);
    EXPECT_EQ(2, answer.tries);
    EXPECT_EQ(server.request(0).bytes, server.request(1).bytes);
}

TEST_F(LoopTest, RunWithATimeLimit_ReturnsWithoutAnAnswer) {
    const PlayedServer server;
    const ConfiguredLibrary library({.authServers = {server.entry()}});
    const Loop loop;
    Answer answer;
    loop.start(answer);
    EXPECT_EQ(0, loop.run(20));
    EXPECT_EQ(0, answer.times);
}

TEST_F(LoopTest, AcctDelayTime_MakesANewPacketWithTheTimeThatPassed) {
    const PlayedServer server;
    const ConfiguredLibrary library({.acctServers = {server.entry(kPlenty, 1)}});
    const Loop loop;
    Answer answer;
    loop.start(answer, kAccounting, accounting(5).get());
    const ReceivedRequest first = server.take();
    EXPECT_BYTES_EQ("00000005"_hex, attributeValue(first, RAD_ATTR_ACCT_DELAY_TIME));
    clock_.advance(3.5);
    EXPECT_EQ(0, loop.run());
    const ReceivedRequest second = server.take();
    EXPECT_BYTES_EQ("00000008"_hex, attributeValue(second, RAD_ATTR_ACCT_DELAY_TIME));
    EXPECT_NE(first.identifier(), second.identifier());
    EXPECT_TRUE(accountingAuthenticatorIsValid(second, kSecret));
    EXPECT_THAT(attributeTypes(second), ElementsAre(1, 41, 4));
    server.reply(second, 5);
    EXPECT_EQ(1, loop.run());
    EXPECT_EQ(5, answer.code);
    EXPECT_EQ(2, answer.tries);
    EXPECT_EQ(0U, statusOf(server).pending);
    EXPECT_EQ(1U, statusOf(server).retransmissions);
}

TEST_F(LoopTest, AccountingWithoutDelay_IsSentAgainAsItWas) {
    const PlayedServer server;
    const ConfiguredLibrary library({.acctServers = {server.entry(kPlenty, 1)}});
    const Loop loop;
    Answer answer;
    loop.start(answer, kAccounting);
    const ReceivedRequest first = server.take();
    clock_.advance(3);
    EXPECT_EQ(0, loop.run());
    EXPECT_EQ(first.bytes, server.take().bytes);
}

// --- Strays ------------------------------------------------------------------------------------------

TEST_F(LoopTest, WhatIsNoValidReply_IsCountedAndTheReplyAfterItCounts) {
    const PlayedServer server;
    const ConfiguredLibrary library({.authServers = {server.entry()}});
    const Loop loop;
    Answer answer;
    loop.start(answer);
    const ReceivedRequest request = server.take();
    const Attributes sign = Attributes().addMessageAuthenticator();
    server.send(request, {});              // short
    server.send(request, "0203"_hex);      // short
    server.send(request, Bytes(5000, 2));  // long; of no request
    Bytes longer = makeReply(2, request, kSecret);
    longer.push_back(0);
    server.send(request, longer);                                         // malformed
    server.reply(request, 2, Attributes().addRaw("1201"_hex));            // malformed
    server.reply(request, 2, {}, {.wrongIdentifier = true});              // of no request
    server.reply(request, 2, {}, {.wrongAuthenticator = true});           // bad
    server.reply(request, 2, sign, {.wrongMessageAuthenticator = true});  // bad
    server.reply(request, 2, Attributes().add(79, "03010004"_hex));       // bad: unsigned
    EXPECT_EQ(0, loop.run());
    EXPECT_EQ(0, answer.times);
    server.reply(request, 2, Attributes().addText(18, "true"));
    EXPECT_EQ(1, loop.run());
    EXPECT_EQ(2, answer.code);
    EXPECT_EQ(0, answer.reason);
    ASSERT_NE(nullptr, answer.reply);
    EXPECT_STREQ("true", answer.reply->strValue);
    answer.reply.reset();
    const RadServerStatus status = statusOf(server);
    EXPECT_EQ(4U, status.malformed);
    EXPECT_EQ(2U, status.strays);
    EXPECT_EQ(3U, status.badAuthenticators);
    EXPECT_EQ(1U, status.accepts);
}

TEST_F(LoopTest, StraysAlone_AreWhatTheLastErrorTells) {
    const PlayedServer server;
    const ConfiguredLibrary library({.authServers = {server.entry(0)}});
    const Loop loop;
    Answer answer;
    loop.start(answer);
    server.reply(server.take(), 2, {}, {.wrongAuthenticator = true});
    loop.finish();
    EXPECT_EQ(-1, answer.code);
    EXPECT_EQ(RAD_STEP_REPLY + 0, answer.step);
    EXPECT_EQ(RAD_REASON_REPLY_AUTHENTICATOR + 0, answer.reason);
    EXPECT_EQ(1, statusOf(server).alive) << "something came from it";
}

TEST_F(LoopTest, ReplyToACancelledRequest_IsAStray) {
    const PlayedServer server;
    const ConfiguredLibrary library({.authServers = {server.entry()}});
    const Loop loop;
    Answer answer;
    radRequestCancel(loop.start(answer));
    server.reply(server.take(), 2);
    EXPECT_EQ(0, loop.run());
    EXPECT_EQ(0, answer.times);
    EXPECT_EQ(1U, statusOf(server).strays);
    EXPECT_EQ(0U, statusOf(server).pending);
}

// --- Message-Authenticator ---------------------------------------------------------------------------

TEST_F(LoopTest, RepliesThatHaveToBeSigned_AsTheOptionSays) {
    const PlayedServer server;
    const ConfiguredLibrary library({.authServers = {server.entry()}});
    const Loop loop;
    const auto unsignedCounts = [&](int option, const RadPair *pairs) {
        radOptionSet(RAD_OPTION_REQUIRE_MESSAGE_AUTHENTICATOR, option);
        Answer answer;
        loop.start(answer, kAccess, pairs);
        const ReceivedRequest request = server.take();
        server.reply(request, 2);
        const bool counts = loop.run() == 1;
        server.reply(request, 2, Attributes().addMessageAuthenticator());
        EXPECT_EQ(counts ? 0 : 1, loop.run()) << "signed, it counts in any case";
        EXPECT_EQ(2, answer.code);
        return counts;
    };
    const PairList eap = withEap();
    EXPECT_TRUE(unsignedCounts(0, nemo().get()));
    EXPECT_FALSE(unsignedCounts(1, nemo().get()));
    EXPECT_TRUE(unsignedCounts(-1, nemo().get()));
    EXPECT_FALSE(unsignedCounts(0, eap.get()));
    EXPECT_FALSE(unsignedCounts(1, eap.get()));
    EXPECT_TRUE(unsignedCounts(-1, eap.get()));
}

TEST_F(LoopTest, AccountingReply_NeedsNoMessageAuthenticator) {
    const PlayedServer server;
    const ConfiguredLibrary library({.acctServers = {server.entry()}});
    radOptionSet(RAD_OPTION_REQUIRE_MESSAGE_AUTHENTICATOR, 1);
    const Loop loop;
    Answer answer;
    loop.start(answer, kAccounting);
    server.reply(server.take(), 5);
    EXPECT_EQ(1, loop.run());
    EXPECT_EQ(5, answer.code);
}

}  // namespace
}  // namespace lanyard::test::loop_test
