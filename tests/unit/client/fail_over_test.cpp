// Going on to the next server: after silence and invalid replies, or whatever the reply.
#include <memory>
#include <string>
#include <vector>

#include "tests/support/test.h"
#include "tests/unit/client/exchange_fixture.h"

namespace lanyard::test::fail_over_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

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
}  // namespace lanyard::test::fail_over_test
