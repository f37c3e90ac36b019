// Server choice: completing the request, asking one server after the other.
#include <algorithm>
#include <array>
#include <chrono>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/engine.h>
#include <palcore.h>

#include "tests/support/bytes.h"
#include "tests/support/configured_library.h"
#include "tests/support/failing_partition.h"
#include "tests/support/log_recorder.h"
#include "tests/support/radius_wire.h"
#include "tests/support/scripted_server.h"
#include "tests/unit/engine/fixture.h"
#include "tests/unit/engine/system_calls.h"

namespace {

using namespace lanyard::test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char *kSecret = "secret";
constexpr int kAccess = RAD_CODE_ACCESS_REQUEST;
constexpr int kAccounting = RAD_CODE_ACCOUNTING_REQUEST;
constexpr int32_t kUntouched = 4711;
constexpr int kPlenty = 20;  // seconds that no test ever waits for

using Results = std::array<int32_t, RAD_SERVERS_MAX>;

// The machine is called "gateway" and has the address 127.1.2.3.
class ExchangeTest : public EngineTest {
  protected:
    int exchange(int code, RadPair *pairs) {
        RadPair stale{};
        RadPair *list = &stale;
        const int result = radBuildAndSendReq(code, pairs, &list);
        EXPECT_NE(&stale, list) << "the list was left as it was";
        reply_.reset(list);
        return result;
    }
    int exchange(int code) { return exchange(code, nemo().get()); }

    int exchangeWithAll(int code, RadPair *pairs) {
        results_.fill(kUntouched);
        RadPair stale{};
        RadPair *list = &stale;
        const int result = radBuildAndSendReqCheckAllServer(code, pairs, &list, results_.data());
        EXPECT_NE(&stale, list) << "the list was left as it was";
        reply_.reset(list);
        return result;
    }
    int exchangeWithAll(int code) { return exchangeWithAll(code, nemo().get()); }

    // The results that were stored; fails the test when one lies behind a slot without.
    std::vector<int32_t> results() const {
        const auto *const end = std::find(results_.begin(), results_.end(), kUntouched);
        EXPECT_EQ(std::count(end, results_.end(), kUntouched), results_.end() - end);
        return {results_.begin(), end};
    }

    static PairList nemo() {
        RadPair *list = nullptr;
        radPairAdd(&list, RAD_ATTR_USER_NAME, "nemo", 0);
        return PairList(list);
    }

    const HostName name_{"gateway"};
    const ResolverEntry address_{"gateway", "127.1.2.3"};
    Results results_{};
    PairList reply_;
};

const Bytes kOwnAddress = "7f010203"_hex;

// Both variants, by the name that their messages carry.
class BothExchanges : public ExchangeTest, public testing::WithParamInterface<const char *> {
  protected:
    int run(int code, RadPair *pairs) {
        return isAll() ? exchangeWithAll(code, pairs) : exchange(code, pairs);
    }
    int run(int code) { return run(code, nemo().get()); }
    static const char *function() { return GetParam(); }
    static bool isAll() { return std::string(GetParam()) != "radBuildAndSendReq"; }
};

INSTANTIATE_TEST_SUITE_P(Variants, BothExchanges,
                         testing::Values("radBuildAndSendReq", "radBuildAndSendReqCheckAllServer"),
                         [](const auto &parameter) { return std::string(parameter.param); });

TEST_P(BothExchanges, RefuseMissingArguments) {
    const SilentPort server;
    const ConfiguredLibrary library({.authServers = {serverEntry(server)}});
    RadPair stale{};
    RadPair *list = &stale;
    const PairList pairs = nemo();
    const LogRecorder log;
    if (isAll()) {
        EXPECT_EQ(-1, radBuildAndSendReqCheckAllServer(kAccess, nullptr, &list, results_.data()));
        EXPECT_EQ(-1,
                  radBuildAndSendReqCheckAllServer(kAccess, pairs.get(), nullptr, results_.data()));
        EXPECT_EQ(&stale, list);
        EXPECT_EQ(-1, radBuildAndSendReqCheckAllServer(kAccess, pairs.get(), &list, nullptr));
        EXPECT_EQ(nullptr, list);
    } else {
        EXPECT_EQ(-1, radBuildAndSendReq(kAccess, nullptr, &list));
        EXPECT_EQ(-1, radBuildAndSendReq(kAccess, pairs.get(), nullptr));
    }
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_THAT(server.received(), IsEmpty());
}

TEST_P(BothExchanges, RefuseEveryOtherRequestCode) {
    const SilentPort server;
    const ConfiguredLibrary library(
        {.authServers = {serverEntry(server)}, .acctServers = {serverEntry(server)}});
    const PairList pairs = nemo();
    for (const int code : {2, 0, 3, 5, 11, -1, 256, 257, 260, 65537}) {
        const LogRecorder log;
        EXPECT_EQ(-1, run(code, pairs.get()));
        EXPECT_EQ(nullptr, reply_);
        EXPECT_THAT(log.lines(), ElementsAre(Logged(7, 8, function(),
                                                    "radBuildAndSendReq: Invalid Request Code " +
                                                        std::to_string(code) + "\n")));
    }
    EXPECT_THAT(server.received(), IsEmpty());
    EXPECT_THAT(attrNums(pairs.get()), ElementsAre(1));
}

TEST_P(BothExchanges, NeedServersTimeoutAndRetries) {
    const SilentPort server;
    const ConfiguredLibrary library({.authServers = {serverEntry(server)}});
    const PairList pairs = nemo();
    const auto expectUnconfigured = [&](int code, const std::vector<std::string> &missing) {
        const LogRecorder log;
        EXPECT_EQ(-1, run(code, pairs.get()));
        EXPECT_EQ(nullptr, reply_);
        std::vector<std::string> expected;
        expected.reserve(missing.size());
        for (const std::string &option : missing) {
            expected.push_back("radConfGet: failed to get value of config option : " + option +
                               "\n");
        }
        EXPECT_EQ(expected, log.texts(128));
        EXPECT_ONLY_PROBLEM(log, 8, function(),
                            "radBuildAndSendReq: RADIUS is not configured properly\n");
    };
    expectUnconfigured(kAccounting, {"acctserver"});
    radConfDelTimeout();
    expectUnconfigured(kAccess, {"timeout"});
    radConfDelRetries();
    expectUnconfigured(kAccess, {"timeout", "retries"});
    radConfSetTimeout("0");
    expectUnconfigured(kAccess, {"retries"});
    radConfSetRetries("0");
    radConfDelAuthServ();
    expectUnconfigured(kAccess, {"authserver"});
    EXPECT_THAT(server.received(), IsEmpty());
}

TEST_P(BothExchanges, AskForTimeoutAndRetriesBeforeAnythingElse) {
    const ConfiguredLibrary library;
    radConfDelTimeout();
    radConfDelRetries();
    const LogRecorder log;
    RadPair *list = nullptr;
    EXPECT_EQ(-1, isAll()
                      ? radBuildAndSendReqCheckAllServer(kAccess, nullptr, &list, results_.data())
                      : radBuildAndSendReq(kAccess, nullptr, &list));
    EXPECT_THAT(log.texts(),
                ElementsAre("radConfGet: failed to get value of config option : timeout\n",
                            "radConfGet: failed to get value of config option : retries\n"));
}

TEST_P(BothExchanges, AddTheOwnAddressAndAMessageAuthenticatorLast) {
    const ScriptedServer server(kSecret, {accept()});
    const ConfiguredLibrary library({.authServers = {serverEntry(server, kPlenty)}});
    const PairList pairs = nemo();
    EXPECT_EQ(2, run(kAccess, pairs.get()));
    const ReceivedRequest request = server.request(0);
    EXPECT_EQ(1, request.code());
    EXPECT_THAT(attributeTypes(request), ElementsAre(1, 4, 80));
    EXPECT_BYTES_EQ(kOwnAddress, attributeValue(request, 4));
    EXPECT_TRUE(messageAuthenticatorIsValid(request, kSecret));
    EXPECT_THAT(attrNums(pairs.get()), ElementsAre(1, 4, 80)) << "they stay in the caller's list";
    EXPECT_EQ(0x7f010203U, radPairGet(pairs.get(), 4)->numValue);
}

TEST_P(BothExchanges, AddTheServersNasIdentifierInPlaceOfTheAddress) {
    const ScriptedServer server(kSecret, {accept()});
    ServerEntry entry = serverEntry(server, kPlenty);
    entry.extra = "lobby";
    const ConfiguredLibrary library({.authServers = {entry}});
    EXPECT_EQ(2, run(kAccess));
    EXPECT_THAT(attributeTypes(server.request(0)), ElementsAre(1, 32, 80));
    EXPECT_EQ("lobby", toText(attributeValue(server.request(0), 32)));
    EXPECT_TRUE(messageAuthenticatorIsValid(server.request(0), kSecret));
}

TEST_P(BothExchanges, AskAccountingServersWithoutAMessageAuthenticator) {
    const SilentPort authServer;
    const ScriptedServer server(kSecret, {accountingResponse()});
    const ConfiguredLibrary library(
        {.authServers = {serverEntry(authServer)}, .acctServers = {serverEntry(server, kPlenty)}});
    EXPECT_EQ(5, run(kAccounting));
    EXPECT_EQ(4, server.request(0).code());
    EXPECT_THAT(attributeTypes(server.request(0)), ElementsAre(1, 4));
    EXPECT_TRUE(accountingAuthenticatorIsValid(server.request(0), kSecret));
    EXPECT_THAT(authServer.received(), IsEmpty());
}

TEST_P(BothExchanges, TakeAMessageAuthenticatorOfTheCallersOutOfAnAccountingRequest) {
    const ScriptedServer server(kSecret, {accountingResponse()});
    const ConfiguredLibrary library({.acctServers = {serverEntry(server, kPlenty)}});
    const PairList pairs = nemo();
    RadPair *list = pairs.get();
    ASSERT_NE(nullptr, radPairAdd(&list, 80, "0123456789abcdef", 16));
    EXPECT_EQ(5, run(kAccounting, pairs.get()));
    EXPECT_THAT(attributeTypes(server.request(0)), ElementsAre(1, 4));
}

TEST_P(BothExchanges, HandTheReplyToTheCaller) {
    const ScriptedServer server(kSecret, {challenge(Attributes().addText(24, "state"))});
    const ConfiguredLibrary library({.authServers = {serverEntry(server, kPlenty)}});
    EXPECT_EQ(11, run(kAccess));
    EXPECT_THAT(attrNums(reply_.get()), ElementsAre(24));
    reply_.reset();
}

TEST_P(BothExchanges, TakeTheServersOwnTimeoutAndRetriesOrTheDefaults) {
    struct Case {
        int timeout;
        int retries;
        size_t sends;
    };
    // Default: no time, two retries.
    for (const Case entry : {Case{-1, -1, 3}, Case{-1, 5, 6}, Case{0, 0, 1}, Case{0, -1, 3}}) {
        const SilentPort server;
        const ConfiguredLibrary library(
            {.authServers = {serverEntry(server, entry.timeout, entry.retries)},
             .timeout = "0",
             .retries = "2"});
        EXPECT_EQ(-1, run(kAccess));
        EXPECT_THAT(server.received(), SizeIs(entry.sends));
    }
}

TEST_P(BothExchanges, WaitAsLongAsTheServersOwnTimeout) {
    using namespace std::chrono_literals;
    const ScriptedServer patient(kSecret, {accept().delayed(50ms)});
    const ConfiguredLibrary library(
        {.authServers = {serverEntry(patient, kPlenty)}, .timeout = "0", .retries = "0"});
    EXPECT_EQ(2, run(kAccess));
    EXPECT_EQ(1U, patient.requestCount());
}

TEST_P(BothExchanges, DoNotWaitForAServerWhoseOwnTimeoutIsZero) {
    using namespace std::chrono_literals;
    const SilentPort server;
    const ConfiguredLibrary library({.authServers = {serverEntry(server, 0)}, .timeout = "20"});
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(-1, run(kAccess));
    EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);
    EXPECT_THAT(server.received(), SizeIs(1));
}

// Drops the secret of a server, which no configuration call can do.
void dropSecret(const ServerEntry &entry) {
    auto *const slots = static_cast<RadServer *>(radConfGet(RAD_CONF_AUTH_SERVERS));
    ASSERT_NE(nullptr, slots);
    auto *const slot = std::find_if(slots, slots + RAD_SERVERS_MAX, [&](const RadServer &server) {
        return server.host != nullptr && server.host == entry.host && server.port == entry.port;
    });
    ASSERT_NE(slots + RAD_SERVERS_MAX, slot);
    palMemPartFree(radMemPartId, slot->secret);
    slot->secret = nullptr;
}

TEST_P(BothExchanges, EndAtAServerWithoutASecret) {
    const SilentPort first;
    const SilentPort second;
    const SilentPort third;
    const ServerEntry without = serverEntry(second, 0);
    const ConfiguredLibrary library(
        {.authServers = {serverEntry(first, 0), without, serverEntry(third, 0)}});
    dropSecret(without);
    const PairList pairs = nemo();
    const LogRecorder log;
    EXPECT_EQ(-1, run(kAccess, pairs.get()));
    EXPECT_EQ(nullptr, reply_);
    EXPECT_THAT(log.lines(8),
                ElementsAre(Logged(7, 8, "radSendtoServer",
                                   "radSendtoServer: No reply from RADIUS server 127.0.0.1:" +
                                       std::to_string(first.port()) + "\n"),
                            Logged(7, 8, function(),
                                   "radBuildAndSendReq: Server 127.0.0.1:" +
                                       std::to_string(second.port()) + " Has No Secret\n")));
    EXPECT_THAT(first.received(), SizeIs(1));
    EXPECT_THAT(second.received(), IsEmpty());
    EXPECT_THAT(third.received(), IsEmpty());
    if (isAll()) {
        EXPECT_THAT(results(), ElementsAre(-1));
    }
    EXPECT_THAT(attrNums(pairs.get()), ElementsAre(1, 4, 80));
}

TEST_P(BothExchanges, LookAtTheSecretBeforeTheyTouchTheList) {
    const SilentPort server;
    const ConfiguredLibrary library({.authServers = {serverEntry(server)}});
    dropSecret(serverEntry(server));
    const PairList pairs = nemo();
    EXPECT_EQ(-1, run(kAccess, pairs.get()));
    EXPECT_THAT(attrNums(pairs.get()), ElementsAre(1));
}

TEST_P(BothExchanges, FailWithoutAnAddressOfThisMachine) {
    const SilentPort server;
    const ConfiguredLibrary library({.authServers = {serverEntry(server), serverEntry(server)}});
    const HostName unknown("nobody");
    {
        const LogRecorder log;
        EXPECT_EQ(-1, run(kAccess));
        EXPECT_THAT(log.texts(8), ElementsAre("radGetIPByName: couldn't resolve hostname: nobody\n",
                                              "radGetHostIP: couldn't get host IP address\n"));
    }
    library.root().remove("/var");
    {
        const LogRecorder log;
        EXPECT_EQ(-1, run(kAccess));
        EXPECT_THAT(log.texts(8), ElementsAre("radGetIPByName: couldn't resolve hostname: nobody\n",
                                              "failed to open /var/hosts\n"));
    }
    EXPECT_THAT(server.received(), IsEmpty());
}

TEST_P(BothExchanges, FailWithANasIdentifierThatFitsNoAttribute) {
    const SilentPort server;
    ServerEntry entry = serverEntry(server);
    entry.extra = std::string(254, 'x');
    const ConfiguredLibrary library({.authServers = {entry, serverEntry(server)}});
    const LogRecorder log;
    EXPECT_EQ(-1, run(kAccess));
    EXPECT_THAT(log.texts(8), ElementsAre("radPairAssign: bad attribute value length\n"));
    EXPECT_THAT(server.received(), IsEmpty());
}

TEST_P(BothExchanges, PassOverFreeSlots) {
    ScriptedServer first(kSecret, {}, "127.0.0.1");
    ScriptedServer second(kSecret, {}, "127.0.0.2");
    ScriptedServer third(kSecret, {}, "127.0.0.3");
    ScriptedServer fourth(kSecret, {}, "127.0.0.4");
    for (ScriptedServer *server : {&first, &second, &third, &fourth}) {
        server->otherwise(reject());
    }
    const ConfiguredLibrary library(
        {.authServers = {serverEntry(first, kPlenty), serverEntry(second, kPlenty),
                         serverEntry(third, kPlenty), serverEntry(fourth, kPlenty)}});
    EXPECT_EQ(0, radConfDelAuthServer("127.0.0.1"));
    EXPECT_EQ(0, radConfDelAuthServer("127.0.0.3"));
    EXPECT_EQ(3, run(kAccess));
    EXPECT_EQ(0U, first.requestCount());
    EXPECT_EQ(1U, second.requestCount());
    EXPECT_EQ(0U, third.requestCount());
    EXPECT_EQ(isAll() ? 1U : 0U, fourth.requestCount());
    if (isAll()) {
        EXPECT_THAT(results(), ElementsAre(3, 3)) << "without holes";
    }
}

TEST_P(BothExchanges, AskNoMoreServersThanTheCountSays) {
    const SilentPort first;
    const SilentPort second;
    const ConfiguredLibrary library(
        {.authServers = {serverEntry(first, 0), serverEntry(second, 0)}});
    EXPECT_EQ(0, radConfDelAuthServer("nobody"));  // lowers the count, and no more
    EXPECT_EQ(-1, run(kAccess));
    EXPECT_THAT(first.received(), SizeIs(1));
    EXPECT_THAT(second.received(), IsEmpty());
}

TEST_P(BothExchanges, LeaveNothingBehindWhenMemoryIsExhausted) {
    ScriptedServer server(kSecret);
    server.otherwise(accept(Attributes().addText(18, "Hello").addMessageAuthenticator()));
    ServerEntry entry = serverEntry(server, kPlenty);
    entry.extra = "lobby";
    const ConfiguredLibrary library({.authServers = {entry}});
    const unsigned failures = forEachFailingAllocation([&] {
        // The caller's list, which may not come to be either.
        RadPair *list = nullptr;
        for (const int attrNum : {32, 1, 2, 80}) {
            if (radPairAdd(&list, attrNum, "abcdefghijklmnop", 16) == nullptr) {
                break;
            }
        }
        const PairList pairs(list);
        const bool listIsWhole = !allocationFailed();
        const int result = listIsWhole ? run(kAccess, pairs.get()) : -1;
        EXPECT_EQ(allocationFailed() ? -1 : 2, result);
        EXPECT_EQ(allocationFailed(), reply_ == nullptr);
        reply_.reset();
    });
    // The list; identifier and authenticator; the request, the password and its cipher; the reply
    // and its two pairs.
    EXPECT_EQ(4U + 2U + 3U + 3U, failures);
}

TEST_P(BothExchanges, GiveEveryTryAFreshIdentifierAndWrapAround) {
    ScriptedServer server(kSecret);
    server.otherwise(accept());
    const ConfiguredLibrary library({.authServers = {serverEntry(server, kPlenty)}});
    const PairList pairs = nemo();
    constexpr size_t kTries = 258;
    for (size_t i = 0; i < kTries; ++i) {
        ASSERT_EQ(2, run(kAccess, pairs.get()));
    }
    const std::vector<ReceivedRequest> requests = server.requests();
    ASSERT_EQ(kTries, requests.size());
    for (size_t i = 1; i < kTries; ++i) {
        EXPECT_EQ(static_cast<uint8_t>(requests[i - 1].identifier() + 1), requests[i].identifier());
    }
    EXPECT_EQ(requests[0].identifier(), requests[256].identifier());
}

// What the caller put in a list, by attribute number, and what is to be sent.
struct ListCase {
    std::vector<int> given;
    std::vector<int> sent;
};

PairList pairsOf(const std::vector<int> &attrNums) {
    const uint32_t stale = 0x01010101;
    RadPair *list = nullptr;
    for (const int attrNum : attrNums) {
        const bool number = attrNum == 4;
        EXPECT_NE(nullptr,
                  radPairAdd(&list, attrNum,
                             number ? static_cast<const void *>(&stale) : "stale-stale-stal",
                             number ? 4 : 16));
    }
    return PairList(list);
}

TEST_P(BothExchanges, KeepTheHeadOfTheCallersListInItsPlace) {
    const std::vector<ListCase> cases = {
        {{4}, {4, 80}},
        {{32}, {4, 80}},
        {{80}, {4, 80}},
        {{4, 32}, {4, 80}},
        {{80, 4}, {4, 80}},
        {{32, 4, 80}, {4, 80}},
        {{80, 32, 4}, {4, 80}},
        {{4, 80, 32}, {4, 80}},
        {{4, 1}, {1, 4, 80}},
        {{32, 1}, {1, 4, 80}},
        {{80, 1}, {1, 4, 80}},
        {{80, 1, 32, 18, 4}, {1, 18, 4, 80}},
        {{1, 32, 4, 80}, {1, 4, 80}},
        // One copy of each goes; further ones stay.
        {{4, 4}, {4, 4, 80}},
        {{32, 1, 32}, {1, 32, 4, 80}},
        {{80, 80, 1}, {80, 1, 4, 80}},
        {{32, 32, 32}, {32, 32, 4, 80}},
    };
    for (const ListCase &entry : cases) {
        SCOPED_TRACE(testing::PrintToString(entry.given));
        ScriptedServer server(kSecret);
        server.otherwise(accept());
        const ConfiguredLibrary library({.authServers = {serverEntry(server, kPlenty)}});
        const PairList pairs = pairsOf(entry.given);
        ASSERT_EQ(2, run(kAccess, pairs.get()));
        EXPECT_EQ(entry.sent, attributeTypes(server.request(0)));
        EXPECT_EQ(entry.sent, attrNums(pairs.get()));
        EXPECT_BYTES_EQ(kOwnAddress, attributeValues(server.request(0), 4).back());

        // The same list serves the next request.
        ASSERT_EQ(2, run(kAccess, pairs.get()));
        EXPECT_EQ(attrNums(pairs.get()), attributeTypes(server.request(1)));
        EXPECT_EQ(80, attributeTypes(server.request(1)).back());
    }
}

TEST_P(BothExchanges, KeepAListThatTheyCouldNotComplete) {
    const SilentPort server;
    const ConfiguredLibrary library({.authServers = {serverEntry(server)}});
    const HostName unknown("nobody");
    for (const std::vector<int> &given : {std::vector{4}, {32}, {80}, {80, 1}, {4, 32, 80}}) {
        const PairList pairs = pairsOf(given);
        EXPECT_EQ(-1, run(kAccess, pairs.get()));
        EXPECT_FALSE(attrNums(pairs.get()).empty());
    }
    EXPECT_THAT(server.received(), IsEmpty());
}

TEST_F(ExchangeTest, GoesOnToTheNextServerWhenOneIsSilent) {
    const SilentPort first;
    const ScriptedServer second(kSecret, {accept()});
    const ConfiguredLibrary library(
        {.authServers = {serverEntry(first, 0, 1), serverEntry(second, kPlenty)}});
    EXPECT_EQ(2, exchange(kAccess));
    const std::vector<Bytes> toFirst = first.received();
    ASSERT_THAT(toFirst, SizeIs(2));
    const ReceivedRequest toSecond = second.request(0);
    EXPECT_EQ(toFirst[0], toFirst[1]);
    EXPECT_EQ(static_cast<uint8_t>(toFirst[0][1] + 1), toSecond.identifier());
    EXPECT_NE(Bytes(toFirst[0].begin() + 4, toFirst[0].begin() + 20), toSecond.authenticator());
    EXPECT_THAT(attributeTypes(toFirst[0]), ElementsAre(1, 4, 80));
    EXPECT_THAT(attributeTypes(toSecond), ElementsAre(1, 4, 80));
    EXPECT_TRUE(messageAuthenticatorIsValid(toFirst[0], kSecret));
    EXPECT_TRUE(messageAuthenticatorIsValid(toSecond, kSecret));
}

TEST_F(ExchangeTest, CompletesTheRequestForEachServerAnew) {
    const SilentPort first;
    const SilentPort second;
    const SilentPort third;
    ServerEntry named = serverEntry(first, 0);
    named.extra = "lobby";
    named.secret = "first";
    ServerEntry renamed = serverEntry(third, 0);
    renamed.extra = "cellar";
    const ConfiguredLibrary library({.authServers = {named, serverEntry(second, 0), renamed}});
    const PairList pairs = nemo();
    EXPECT_EQ(-1, exchange(kAccess, pairs.get()));
    const Bytes toFirst = first.received().at(0);
    const Bytes toSecond = second.received().at(0);
    const Bytes toThird = third.received().at(0);
    EXPECT_THAT(attributeTypes(toFirst), ElementsAre(1, 32, 80));
    EXPECT_EQ("lobby", toText(attributeValue(toFirst, 32)));
    EXPECT_TRUE(messageAuthenticatorIsValid(toFirst, "first"));
    EXPECT_THAT(attributeTypes(toSecond), ElementsAre(1, 4, 80));
    EXPECT_THAT(attributeTypes(toThird), ElementsAre(1, 32, 80));
    EXPECT_EQ("cellar", toText(attributeValue(toThird, 32)));
    EXPECT_THAT(attrNums(pairs.get()), ElementsAre(1, 32, 80));
}

TEST_F(ExchangeTest, EndsWithTheFirstValidReplyWhateverItSays) {
    for (const Action &action : {reject(), challenge(), accept(), answer(99)}) {
        const ScriptedServer first(kSecret, {action});
        const SilentPort second;
        const ConfiguredLibrary library(
            {.authServers = {serverEntry(first, kPlenty), serverEntry(second, 0)}});
        EXPECT_NE(-1, exchange(kAccess));
        EXPECT_THAT(second.received(), IsEmpty());
    }
    const ScriptedServer first(kSecret, {reject()});
    const SilentPort second;
    const ConfiguredLibrary library(
        {.authServers = {serverEntry(first, kPlenty), serverEntry(second, 0)}});
    EXPECT_EQ(3, exchange(kAccess));
}

TEST_F(ExchangeTest, GoesOnToTheNextServerWhenAReplyIsInvalid) {
    for (const Action &action : {accept().withWrongAuthenticator(), accept().withWrongIdentifier(),
                                 accept().withTrailing("00"_hex), sendRaw(Bytes(3, 0)),
                                 accept(Attributes().addText(18, "x").addRaw("1201"_hex)),
                                 challenge(Attributes().add(79, "01020304"_hex))}) {
        const ScriptedServer first(kSecret, {action});
        const ScriptedServer second(kSecret, {reject()});
        const ConfiguredLibrary library(
            {.authServers = {serverEntry(first, kPlenty, 3), serverEntry(second, kPlenty)}});
        EXPECT_EQ(3, exchange(kAccess));
        EXPECT_EQ(1U, first.requestCount());
        EXPECT_EQ(1U, second.requestCount());
    }
}

TEST_F(ExchangeTest, GoesOnToTheNextServerWhenAHostIsUnknown) {
    const ScriptedServer second(kSecret, {accept()});
    const ConfiguredLibrary library(
        {.authServers = {{.host = "nowhere", .port = 1812}, serverEntry(second, kPlenty)}});
    EXPECT_EQ(2, exchange(kAccess));
}

TEST_F(ExchangeTest, FailsWhenNoServerAnswers) {
    const SilentPort first;
    const SilentPort second;
    const ConfiguredLibrary library(
        {.authServers = {serverEntry(first), serverEntry(second)}, .timeout = "0", .retries = "0"});
    const LogRecorder log;
    EXPECT_EQ(-1, exchange(kAccess));
    EXPECT_EQ(nullptr, reply_);
    EXPECT_THAT(log.texts(8),
                ElementsAre("radSendtoServer: No reply from RADIUS server 127.0.0.1:" +
                                std::to_string(first.port()) + "\n",
                            "radSendtoServer: No reply from RADIUS server 127.0.0.1:" +
                                std::to_string(second.port()) + "\n"));
}

TEST_F(ExchangeTest, EndsWithAHooksErrorUnlessItIsMinusOne) {
    ScriptedServer first(kSecret);
    ScriptedServer second(kSecret);
    first.otherwise(accept(Attributes().addText(18, "first")));
    second.otherwise(accept(Attributes().addText(18, "second")));
    const ConfiguredLibrary library(
        {.authServers = {serverEntry(first, kPlenty), serverEntry(second, kPlenty)}});
    int packing = 1;
    int unpacking = 1;
    const Hooks hooks([&](const uint8_t *value, const uint8_t * /*length*/,
                          const RadPair * /*pair*/, const char * /*secret*/,
                          RadPacket * /*request*/) { return value == nullptr ? packing : 1; },
                      [&](const RadPair *pair, RadPair * /*list*/, RadPacket * /*reply*/,
                          RadPacket * /*request*/, const char * /*secret*/) {
                          return std::string(pair->strValue) == "first" ? unpacking : 1;
                      });
    packing = 42;
    EXPECT_EQ(42, exchange(kAccess));
    EXPECT_EQ(0U, first.requestCount() + second.requestCount());
    packing = 1;
    unpacking = 43;
    EXPECT_EQ(43, exchange(kAccess));
    EXPECT_EQ(nullptr, reply_);
    EXPECT_EQ(0U, second.requestCount());
    unpacking = -1;
    EXPECT_EQ(2, exchange(kAccess));
    EXPECT_STREQ("second", reply_->strValue);
    EXPECT_EQ(1U, second.requestCount());
    reply_.reset();
}

TEST_F(ExchangeTest, AsksAllServersAndTellsEachResult) {
    const ScriptedServer first(kSecret, {accept(Attributes().addText(18, "first"))});
    const SilentPort second;
    const ScriptedServer third(kSecret, {challenge(Attributes().addText(18, "third"))});
    const ScriptedServer fourth(kSecret, {accept().withWrongAuthenticator()});
    const ScriptedServer fifth(kSecret, {reject(Attributes().addText(18, "fifth"))});
    const ConfiguredLibrary library(
        {.authServers = {serverEntry(first, kPlenty), serverEntry(second, 0),
                         serverEntry(third, kPlenty), serverEntry(fourth, kPlenty),
                         serverEntry(fifth, kPlenty)}});
    EXPECT_EQ(3, exchangeWithAll(kAccess));
    EXPECT_THAT(results(), ElementsAre(2, -1, 11, -1, 3));
    ASSERT_THAT(attrNums(reply_.get()), ElementsAre(18));
    EXPECT_STREQ("fifth", reply_->strValue) << "the last one alone; the others are released";
    const uint8_t identifier = first.request(0).identifier();
    EXPECT_EQ(static_cast<uint8_t>(identifier + 2), third.request(0).identifier());
    EXPECT_EQ(static_cast<uint8_t>(identifier + 4), fifth.request(0).identifier());
    EXPECT_THAT(attributeTypes(fifth.request(0)), ElementsAre(1, 4, 80));
    reply_.reset();
}

TEST_F(ExchangeTest, YieldsTheLastServersResultAlone) {
    const ScriptedServer first(kSecret, {accept(Attributes().addText(18, "first"))});
    const SilentPort second;
    const ConfiguredLibrary library(
        {.authServers = {serverEntry(first, kPlenty), serverEntry(second, 0)}});
    EXPECT_EQ(-1, exchangeWithAll(kAccess));
    EXPECT_EQ(nullptr, reply_) << "an earlier reply never reaches the caller";
    EXPECT_THAT(results(), ElementsAre(2, -1));
}

TEST_F(ExchangeTest, HandsNoEarlierReplyOutWhenALaterServerHasNoSecret) {
    const ScriptedServer first(kSecret, {accept(Attributes().addText(18, "first"))});
    const SilentPort second;
    const ConfiguredLibrary library(
        {.authServers = {serverEntry(first, kPlenty), serverEntry(second, 0)}});
    dropSecret(serverEntry(second));
    EXPECT_EQ(-1, exchangeWithAll(kAccess));
    EXPECT_EQ(nullptr, reply_);
    EXPECT_THAT(results(), ElementsAre(2));
}

TEST_F(ExchangeTest, AsksAllServersWhateverAHookSays) {
    ScriptedServer first(kSecret, {accept(Attributes().addText(18, "first"))});
    const ScriptedServer second(kSecret, {accept(Attributes().addText(18, "second"))});
    const ConfiguredLibrary library(
        {.authServers = {serverEntry(first, kPlenty), serverEntry(second, kPlenty)}});
    const Hooks hooks({}, [](const RadPair *pair, RadPair * /*list*/, RadPacket * /*reply*/,
                             RadPacket * /*request*/, const char * /*secret*/) {
        return std::string(pair->strValue) == "first" ? 42 : 1;
    });
    EXPECT_EQ(2, exchangeWithAll(kAccess));
    EXPECT_THAT(results(), ElementsAre(42, 2));
    reply_.reset();
}

TEST_F(ExchangeTest, AsksAllEightAccountingServers) {
    std::vector<std::unique_ptr<ScriptedServer>> servers;
    LibraryConfiguration configuration;
    for (int i = 0; i < RAD_SERVERS_MAX; ++i) {
        servers.push_back(std::make_unique<ScriptedServer>(
            kSecret, std::vector{answer(static_cast<uint8_t>(20 + i))}));
        configuration.acctServers.push_back(serverEntry(*servers.back(), kPlenty));
    }
    const ConfiguredLibrary library(configuration);
    EXPECT_EQ(27, exchangeWithAll(kAccounting));
    EXPECT_THAT(results(), ElementsAre(20, 21, 22, 23, 24, 25, 26, 27));
    for (const auto &server : servers) {
        EXPECT_TRUE(accountingAuthenticatorIsValid(server->request(0), kSecret));
    }
}

}  // namespace
