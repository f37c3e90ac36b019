// The calls that wait, with RAD_OPTION_RESILIENT, and what of its rules also holds without.
#include <array>
#include <cerrno>
#include <string>
#include <vector>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/error.h>

#include "tests/support/test.h"
#include "tests/unit/client/loop_fixture.h"

namespace lanyard::test::resilient_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Resilient : public LoopTest {
  protected:
    void SetUp() override {
        LoopTest::SetUp();
        radOptionSet(RAD_OPTION_RESILIENT, 1);
    }

    int sendTo(const ServerEntry &server, const RadPair *pairs) {
        const RadRequestDesc request{.code = kAccess,
                                     .identifier = 7,
                                     .host = server.host.c_str(),
                                     .port = static_cast<uint32_t>(server.port),
                                     .timeout = server.timeout,
                                     .retries = server.retries,
                                     .secret = server.secret.c_str()};
        RadPair *list = nullptr;
        const int result = radSendtoServer(&request, pairs, &list);
        reply_.reset(list);
        return result;
    }

    static std::vector<int32_t> reasons() {
        std::vector<int32_t> all;
        for (int i = 0; const RadLastError *error = radLastErrorAt(i); ++i) {
            all.push_back(error->reason);
        }
        return all;
    }
};

TEST_F(Resilient, Reply_ComesBackAsWithoutTheOption) {
    const ScriptedServer server(kSecret, {accept(Attributes().addText(18, "hello"))});
    const ConfiguredLibrary library({.authServers = {serverEntry(server, kPlenty)}});
    const PairList pairs = nemo();
    EXPECT_EQ(2, exchange(kAccess, pairs.get()));
    ASSERT_NE(nullptr, reply_);
    EXPECT_STREQ("hello", reply_->strValue);
    reply_.reset();
    EXPECT_THAT(attributeTypes(server.request(0)), ElementsAre(1, 4, 80));
    EXPECT_THAT(attrNums(pairs.get()), ElementsAre(1)) << "the caller's list is left alone";
    EXPECT_THAT(reasons(), ElementsAre(0));
}

TEST_F(Resilient, StrayBeforeTheReply_IsIgnored) {
    const ScriptedServer server(kSecret, {accept().withWrongAuthenticator(), reject()},
                                newAddress());
    const ConfiguredLibrary library({.authServers = {serverEntry(server, 1, 1)}});
    EXPECT_EQ(3, exchange(kAccess));
    EXPECT_EQ(server.request(0).bytes, server.request(1).bytes);
    EXPECT_EQ(2, radLastError()->tries);
}

TEST_F(Resilient, DeadServer_IsPassedOverByTheNextCall) {
    const SilentPort first(newAddress());
    ScriptedServer second(kSecret, {}, newAddress());
    second.otherwise(accept());
    const ConfiguredLibrary library(
        {.authServers = {serverEntry(first, 0), serverEntry(second, kPlenty)}});
    EXPECT_EQ(2, exchange(kAccess));
    EXPECT_THAT(reasons(), ElementsAre(RAD_REASON_NO_REPLY + 0, 0));
    EXPECT_EQ(1U, first.received().size());
    EXPECT_EQ(2, exchange(kAccess));
    EXPECT_THAT(reasons(), ElementsAre(0));
    EXPECT_THAT(first.received(), IsEmpty());
}

TEST_F(Resilient, WithStatusServer_ARequestAsksADeadServerAgain) {
    const SilentPort first(newAddress());
    ScriptedServer second(kSecret, {}, newAddress());
    second.otherwise(accept());
    const ConfiguredLibrary library(
        {.authServers = {serverEntry(first, 0), serverEntry(second, kPlenty)}});
    radOptionSet(RAD_OPTION_STATUS_SERVER, 1);
    EXPECT_EQ(2, exchange(kAccess));
    EXPECT_EQ(1U, first.received().size());
    clock_.advance(61);
    EXPECT_EQ(2, exchange(kAccess));
    const std::vector<Bytes> probes = first.received();
    ASSERT_EQ(1U, probes.size());
    EXPECT_EQ(kAccess, probes[0][0]) << "nobody would wait for the answer to another packet";
}

TEST_F(Resilient, AllServers_AreAskedAndTellEachResult) {
    const ScriptedServer first(kSecret, {accept(Attributes().addText(18, "first"))}, newAddress());
    const SilentPort second(newAddress());
    const ScriptedServer third(kSecret, {reject(Attributes().addText(18, "third"))}, newAddress());
    const ConfiguredLibrary library({.authServers = {serverEntry(first, kPlenty),
                                                     serverEntry(second, 0),
                                                     {.host = "nowhere", .port = 1812},
                                                     serverEntry(third, kPlenty)}});
    EXPECT_EQ(3, exchangeWithAll(kAccess));
    EXPECT_THAT(results(), ElementsAre(2, -1, -1, 3));
    ASSERT_NE(nullptr, reply_);
    EXPECT_STREQ("third", reply_->strValue);
    reply_.reset();
    EXPECT_THAT(reasons(), ElementsAre(0, RAD_REASON_NO_REPLY + 0, RAD_REASON_HOST_UNKNOWN + 0, 0));
    EXPECT_EQ(RAD_CODE_ACCESS_REJECT + 0, radLastError()->code);
}

TEST_F(Resilient, SendToOneServer_SendsTheListAsItIs) {
    const ScriptedServer server(kSecret, {challenge()});
    const ConfiguredLibrary library;
    EXPECT_EQ(11, sendTo(serverEntry(server, kPlenty, 0), nemo().get()));
    EXPECT_THAT(attributeTypes(server.request(0)), ElementsAre(1));
    EXPECT_THAT(reasons(), ElementsAre(0));
    EXPECT_EQ(-1,
              sendTo({.host = "nowhere", .port = 1812, .timeout = 0, .retries = 0}, nemo().get()));
    EXPECT_THAT(reasons(), ElementsAre(RAD_REASON_HOST_UNKNOWN + 0));
}

TEST_F(Resilient, SendToOneServer_AsksNothingOfThisDevice) {
    const ScriptedServer server(kSecret, {accept()});
    const ConfiguredLibrary library;
    const HostName renamed("unknown");
    const int asked = resolverCalls();
    const LogRecorder log;
    EXPECT_EQ(2, sendTo(serverEntry(server, kPlenty, 0), nemo().get()));
    EXPECT_PROBLEMS(log);
    EXPECT_EQ(asked, resolverCalls());
}

TEST_F(Resilient, OwnAddress_IsKeptFromOneCallToTheNext) {
    ScriptedServer server(kSecret);
    server.otherwise(accept());
    const ConfiguredLibrary library({.authServers = {serverEntry(server, kPlenty)}});
    clock_.advance(2);  // past what an earlier test has left
    EXPECT_EQ(2, exchange(kAccess));
    const int asked = resolverCalls();
    EXPECT_EQ(2, exchange(kAccess));
    EXPECT_EQ(asked, resolverCalls());
}

TEST_F(Resilient, WrongSecret_ShowsAsWrongAuthenticator) {
    const ScriptedServer server("another", {accept()});
    ServerEntry entry = serverEntry(server, 1, 0);
    entry.secret = kSecret;
    const ConfiguredLibrary library({.authServers = {entry}});
    EXPECT_EQ(-1, exchange(kAccess));
    EXPECT_THAT(reasons(), ElementsAre(RAD_REASON_REPLY_AUTHENTICATOR + 0));
    EXPECT_EQ(RAD_STEP_REPLY + 0, radLastError()->step);
}

TEST_F(Resilient, MissingServers_AreToldAsWithoutTheOption) {
    const ConfiguredLibrary library;
    const LogRecorder log;
    EXPECT_EQ(-1, exchange(kAccess));
    EXPECT_PROBLEMS(log, "error radBuildAndSendReq: RADIUS is not configured properly");
    EXPECT_THAT(reasons(), ElementsAre(RAD_REASON_NOT_CONFIGURED + 0));
    EXPECT_EQ("", std::string(radLastError()->host));
}

TEST_F(Resilient, HookThatRefuses_EndsTheRequestWithItsValue) {
    ScriptedServer server(kSecret);
    server.otherwise(accept(Attributes().addText(18, "hello")));
    const ConfiguredLibrary library({.authServers = {serverEntry(server, kPlenty)}});
    const Hooks hooks({}, [](const RadPair * /*pair*/, RadPair * /*list*/, RadPacket * /*reply*/,
                             RadPacket * /*request*/, const char * /*secret*/) { return 43; });
    EXPECT_EQ(43, exchange(kAccess));
    EXPECT_EQ(nullptr, reply_);
    EXPECT_THAT(reasons(), ElementsAre(RAD_REASON_REPLY_HOOK + 0));
}

TEST_F(Resilient, SystemThatFails_IsWhatTheLastErrorTells) {
    struct Row {
        const char *call;
        int32_t step;
    };
    const SilentPort server(newAddress());
    const ConfiguredLibrary library({.authServers = {serverEntry(server, 0)}});
    for (const Row &row : {Row{"epoll_create1", RAD_STEP_SOCKET}, Row{"socket", RAD_STEP_SOCKET},
                           Row{"timerfd_create", RAD_STEP_SOCKET}, Row{"send", RAD_STEP_SEND},
                           Row{"epoll_wait", RAD_STEP_WAIT}}) {
        const FailingCall failure(row.call, EMFILE);
        EXPECT_EQ(-1, exchange(kAccess));
        EXPECT_TRUE(failure.happened());
        ASSERT_NE(nullptr, radLastError());
        EXPECT_EQ(row.step, radLastError()->step) << row.call;
        EXPECT_EQ(EMFILE, radLastError()->reason) << row.call;
    }
}

TEST_F(LoopTest, WaitingCalls_AskForMessageAuthenticatorsAsTheOptionSays) {
    for (const int resilient : {0, 1}) {
        for (const int option : {-1, 0, 1}) {
            radOptionSet(RAD_OPTION_RESILIENT, resilient);
            radOptionSet(RAD_OPTION_REQUIRE_MESSAGE_AUTHENTICATOR, option);
            for (const bool isEap : {false, true}) {
                const ScriptedServer server(
                    kSecret, {accept(), accept(Attributes().addMessageAuthenticator())},
                    newAddress());
                const ConfiguredLibrary library({.authServers = {serverEntry(server, 1, 1)}});
                const PairList pairs = isEap ? withEap() : nemo();
                const int result = exchange(kAccess, pairs.get());
                reply_.reset();
                const bool isRequired = option > 0 || (option == 0 && resilient != 0 && isEap);
                EXPECT_EQ(isRequired && resilient == 0 ? -1 : 2, result);
                EXPECT_EQ(isRequired && resilient != 0 ? 2U : 1U, server.requestCount())
                    << resilient << option << isEap;
                if (isRequired && resilient == 0) {
                    std::array<char, RAD_LAST_ERROR_TEXT_SIZE> text{};
                    radLastErrorText(radLastError(), text.data(), text.size());
                    EXPECT_THAT(std::string(text.data()),
                                testing::HasSubstr("reply refused: no Message-Authenticator"));
                }
            }
        }
    }
}

}  // namespace
}  // namespace lanyard::test::resilient_test
