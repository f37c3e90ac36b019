// What both variants of the exchange do alike: completing the request, choosing servers.
#include <chrono>
#include <string>
#include <vector>

#include "tests/support/test.h"
#include "tests/unit/client/exchange_fixture.h"

namespace lanyard::test::exchange_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

const Bytes kOwnAddress = "7f010203"_hex;

// Both variants, by the name that their messages carry.
class BothExchanges : public ExchangeTest, public testing::WithParamInterface<const char *> {
  protected:
    int run(int code, RadPair *pairs) {
        return isAll() ? exchangeWithAll(code, pairs) : exchange(code, pairs);
    }
    int run(int code) { return run(code, nemo().get()); }
    // An error of the function, which names itself or the other one in the text.
    static std::string error(const std::string &text) {
        return logText({kLibraryModule, 8, GetParam(), 0, text + '\n'});
    }
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
    EXPECT_LOG(log);
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
        EXPECT_LOG(log, error("radBuildAndSendReq: Invalid Request Code " + std::to_string(code)));
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
        EXPECT_PROBLEMS(log, error("radBuildAndSendReq: RADIUS is not configured properly"));
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
    EXPECT_THAT(log.log(8),
                ElementsAre("error radSendtoServer: No reply from RADIUS server 127.0.0.1:" +
                                std::to_string(first.port()),
                            error("radBuildAndSendReq: Server 127.0.0.1:" +
                                  std::to_string(second.port()) + " Has No Secret")));
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

// The pair that takes the place of the list's only one is the first that is new.
TEST_P(BothExchanges, FailWithoutMemoryForTheOnlyPair) {
    ScriptedServer server(kSecret);
    server.otherwise(accept());
    ServerEntry entry = serverEntry(server, kPlenty);
    entry.extra = "lobby";
    const ConfiguredLibrary library({.authServers = {entry}});
    RadPair *list = nullptr;
    ASSERT_NE(nullptr, radPairAdd(&list, 32, "old", 3));
    const PairList pairs(list);
    failAllocation(1);
    EXPECT_EQ(-1, run(kAccess, pairs.get()));
    EXPECT_TRUE(allocationFailed());
    stopFailing();
    EXPECT_EQ(0U, server.requestCount());
    EXPECT_EQ(2, run(kAccess, pairs.get()));
    EXPECT_BYTES_EQ(fromText("lobby"), attributeValue(server.request(0), 32));
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

}  // namespace
}  // namespace lanyard::test::exchange_test
