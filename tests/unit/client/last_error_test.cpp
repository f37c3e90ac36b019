// What a thread can learn of its last request: step, reason, reply, and the line that tells it.
#include <array>
#include <cerrno>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include <lanyard/radius/error.h>

#include "tests/support/test.h"
#include "tests/unit/client/exchange_fixture.h"

namespace lanyard::test::last_error_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string textOf(const RadLastError &error) {
    std::array<char, RAD_LAST_ERROR_TEXT_SIZE> text{};
    EXPECT_GT(radLastErrorText(&error, text.data(), text.size()), 0);
    return text.data();
}

// The lines of this thread's last request.
std::vector<std::string> lines() {
    std::vector<std::string> all;
    for (int i = 0; const RadLastError *error = radLastErrorAt(i); ++i) {
        all.push_back(textOf(*error));
    }
    return all;
}

std::string at(uint16_t port, const std::string &text) {
    return "127.0.0.1:" + std::to_string(port) + ": " + text;
}

class LastErrorTest : public ExchangeTest {
  protected:
    // Sends to one server that is there, and expects this of it.
    void expectOutcome(const Action &action, int32_t reason, int32_t attribute,
                       const std::string &text) {
        const ScriptedServer server(kSecret, {action});
        const ConfiguredLibrary library({.authServers = {serverEntry(server, kPlenty)}});
        exchange(kAccess);
        reply_.reset();
        const RadLastError *error = radLastError();
        ASSERT_NE(nullptr, error);
        EXPECT_EQ(RAD_STEP_REPLY + 0, error->step);
        EXPECT_EQ(reason, error->reason);
        EXPECT_EQ(attribute, error->attribute);
        EXPECT_EQ(1, error->tries);
        EXPECT_EQ(kPlenty, error->timeout);
        EXPECT_THAT(lines(), ElementsAre(at(server.port(), text)));
    }

    // Sends to one server without a choice of servers.
    int sendTo(const std::string &host, uint16_t port, int timeout) {
        const RadRequestDesc request{.code = kAccess,
                                     .identifier = 7,
                                     .host = host.c_str(),
                                     .port = port,
                                     .timeout = timeout,
                                     .retries = 0,
                                     .secret = kSecret};
        RadPair *list = nullptr;
        const int result = radSendtoServer(&request, nemo().get(), &list);
        reply_.reset(list);
        return result;
    }

    // Expects one record that names no system error.
    static void expectReason(int32_t step, int32_t reason, const std::string &line) {
        const RadLastError *error = radLastError();
        ASSERT_NE(nullptr, error);
        EXPECT_EQ(step, error->step);
        EXPECT_EQ(reason, error->reason);
        EXPECT_EQ(0, error->code);
        EXPECT_THAT(lines(), ElementsAre(line));
    }
};

TEST_F(LastErrorTest, IsNoneInAThreadWithoutRequests) {
    const ScriptedServer server(kSecret, {reject()});
    const ConfiguredLibrary library({.authServers = {serverEntry(server, kPlenty)}});
    EXPECT_EQ(3, exchange(kAccess));
    std::thread([] {
        EXPECT_EQ(nullptr, radLastError());
        EXPECT_EQ(nullptr, radLastErrorAt(0));
    }).join();
    EXPECT_NE(nullptr, radLastError());
}

TEST_F(LastErrorTest, EachThreadHasItsOwn) {
    ScriptedServer server(kSecret);
    server.otherwise(respond([](const ReceivedRequest &request) {
        const bool known = toText(attributeValue(request, RAD_ATTR_USER_NAME)) == "nemo";
        return makeReply(known ? 2 : 3, request, kSecret, {}, {});
    }));
    const ConfiguredLibrary library({.authServers = {serverEntry(server, kPlenty)}});
    EXPECT_EQ(2, exchange(kAccess));
    std::thread([] {
        RadPair *pairs = nullptr;
        ASSERT_NE(nullptr, radPairAdd(&pairs, RAD_ATTR_USER_NAME, "alice", 0));
        RadPair *reply = nullptr;
        EXPECT_EQ(3, radBuildAndSendReq(kAccess, pairs, &reply));
        radPairListFree(reply);
        radPairListFree(pairs);
        ASSERT_NE(nullptr, radLastError());
        EXPECT_EQ(RAD_CODE_ACCESS_REJECT + 0, radLastError()->code);
    }).join();
    ASSERT_NE(nullptr, radLastError());
    EXPECT_EQ(RAD_CODE_ACCESS_ACCEPT + 0, radLastError()->code);
}

// System calls.

struct SystemFailure {
    const char *call;
    int error;
    int32_t step;
    const char *text;
};

std::ostream &operator<<(std::ostream &stream, const SystemFailure &failure) {
    return stream << failure.text;
}

class SystemFailures : public LastErrorTest, public testing::WithParamInterface<SystemFailure> {};

INSTANTIATE_TEST_SUITE_P(
    Calls, SystemFailures,
    testing::Values(
        SystemFailure{"socket", EMFILE, RAD_STEP_SOCKET,
                      "opening a socket failed: Too many open files"},
        SystemFailure{"bind", EADDRINUSE, RAD_STEP_BIND,
                      "binding the socket failed: Address already in use"},
        SystemFailure{"getsockname", ENOBUFS, RAD_STEP_BIND,
                      "binding the socket failed: No buffer space available"},
        SystemFailure{"sendto", EHOSTUNREACH, RAD_STEP_SEND, "sending failed: No route to host"},
        SystemFailure{"sendto", ENETUNREACH, RAD_STEP_SEND,
                      "sending failed: Network is unreachable"},
        SystemFailure{"sendto", ENETDOWN, RAD_STEP_SEND, "sending failed: Network is down"},
        SystemFailure{"sendto", EACCES, RAD_STEP_SEND, "sending failed: Permission denied"},
        SystemFailure{"recvfrom", ENOMEM, RAD_STEP_RECEIVE,
                      "receiving failed: Cannot allocate memory"}));

TEST_P(SystemFailures, NameStepAndError) {
    const ScriptedServer server(kSecret, {accept()});
    const ConfiguredLibrary library({.authServers = {serverEntry(server, kPlenty)}});
    const FailingCall failure(GetParam().call, GetParam().error);
    EXPECT_EQ(-1, exchange(kAccess));
    ASSERT_TRUE(failure.happened());
    const RadLastError *error = radLastError();
    ASSERT_NE(nullptr, error);
    EXPECT_EQ(GetParam().step, error->step);
    EXPECT_EQ(GetParam().error, error->reason);
    EXPECT_EQ(0, error->code);
    EXPECT_STREQ("127.0.0.1", error->host);
    EXPECT_EQ(server.port(), error->port);
    EXPECT_THAT(lines(), ElementsAre(at(server.port(), GetParam().text)));
}

TEST_F(LastErrorTest, SecondReadThatFails_NamesItsError) {
    const ScriptedServer server(kSecret, {accept()});
    const ConfiguredLibrary library({.authServers = {serverEntry(server, kPlenty)}});
    const FailingCall failure("recvfrom", EIO, 2);
    EXPECT_EQ(-1, exchange(kAccess));
    ASSERT_TRUE(failure.happened());
    EXPECT_THAT(lines(), ElementsAre(at(server.port(), "receiving failed: Input/output error")));
}

TEST_F(LastErrorTest, NegativeTimeout_NamesTheWait) {
    const SilentPort server;
    const ConfiguredLibrary library;
    EXPECT_EQ(-1, sendTo(server.host(), server.port(), -2));
    EXPECT_THAT(lines(),
                ElementsAre(at(server.port(), "waiting for the reply failed: Invalid argument")));
}

// Silence.

TEST_F(LastErrorTest, Silence_CountsTheTries) {
    const SilentPort server;
    const ConfiguredLibrary library({.authServers = {serverEntry(server, 0, 2)}});
    EXPECT_EQ(-1, exchange(kAccess));
    EXPECT_EQ(3, radLastError()->tries);
    expectReason(
        RAD_STEP_WAIT, RAD_REASON_NO_REPLY,
        at(server.port(), "no reply in 3 tries of 0 s: server down, wrong port, or wrong secret"));
}

TEST_F(LastErrorTest, TextOfSilence) {
    RadLastError error{};
    std::string("203.0.113.1").copy(static_cast<char *>(error.host), sizeof(error.host));
    error.port = 1812;
    error.step = RAD_STEP_WAIT;
    error.reason = RAD_REASON_NO_REPLY;
    error.tries = 3;
    error.timeout = 10;
    EXPECT_EQ(
        "203.0.113.1:1812: no reply in 3 tries of 10 s: server down, wrong port, or wrong secret",
        textOf(error));
    error.tries = 1;
    EXPECT_EQ(
        "203.0.113.1:1812: no reply in 1 try of 10 s: server down, wrong port, or wrong secret",
        textOf(error));
}

// Replies.

TEST_F(LastErrorTest, ValidReplies_TellTheirCode) {
    expectOutcome(accept(), 0, 0, "accepted by the server (Access-Accept)");
    EXPECT_EQ(2, radLastError()->code);
    expectOutcome(reject(), 0, 0, "rejected by the server (Access-Reject)");
    EXPECT_EQ(3, radLastError()->code);
    expectOutcome(challenge(), 0, 0, "the server asks for more (Access-Challenge)");
    EXPECT_EQ(11, radLastError()->code);
    expectOutcome(answer(99), 0, 0, "reply with code 99");
    EXPECT_EQ(99, radLastError()->code);

    const ScriptedServer server(kSecret, {accountingResponse()});
    const ConfiguredLibrary library({.acctServers = {serverEntry(server, kPlenty)}});
    EXPECT_EQ(5, exchange(kAccounting));
    EXPECT_EQ(5, radLastError()->code);
    EXPECT_THAT(lines(),
                ElementsAre(at(server.port(), "answered by the server (Accounting-Response)")));
}

TEST_F(LastErrorTest, RefusedReplies_TellWhy) {
    expectOutcome(sendRaw(Bytes(19, 0)), RAD_REASON_REPLY_SHORT, 0,
                  "reply refused: shorter than a header");
    expectOutcome(accept().withTrailing("00"_hex), RAD_REASON_REPLY_LENGTH, 0,
                  "reply refused: its length is not the one that it says");
    expectOutcome(accept().withWrongIdentifier(), RAD_REASON_REPLY_IDENTIFIER, 0,
                  "reply refused: it answers another request");
    expectOutcome(
        accept().withWrongAuthenticator(), RAD_REASON_REPLY_AUTHENTICATOR, 0,
        "reply refused: wrong response authenticator: wrong secret, or not from the server");
    expectOutcome(accept(Attributes().addRaw("1201"_hex)), RAD_REASON_REPLY_ATTRIBUTES, 0,
                  "reply refused: malformed attributes, or no memory for them");
    expectOutcome(challenge(Attributes().add(79, "01020304"_hex)), RAD_REASON_REPLY_UNSIGNED, 79,
                  "reply refused: EAP-Message without Message-Authenticator");
    expectOutcome(accept(Attributes().addMessageAuthenticator()).withWrongMessageAuthenticator(),
                  RAD_REASON_REPLY_SIGNATURE, 80,
                  "reply refused: wrong Message-Authenticator: wrong secret, or not from the "
                  "server");
    expectOutcome(accept(Attributes().addVendor(311, 17, "8001000102"_hex)),
                  RAD_REASON_REPLY_ATTRIBUTE, 26, "reply refused: attribute 26");
    const Hooks hooks({}, [](const RadPair *pair, RadPair * /*list*/, RadPacket * /*reply*/,
                             RadPacket * /*request*/,
                             const char * /*secret*/) { return pair->attrNum == 18 ? 2 : 1; });
    expectOutcome(accept(Attributes().addText(18, "x")), RAD_REASON_REPLY_HOOK, 18,
                  "reply refused: attribute 18, by this program's hook");
    EXPECT_EQ(0, radLastError()->code) << "a hook's value is no code";
}

// What keeps a request from being sent.

TEST_F(LastErrorTest, RequestThatGoesNowhere_HasNoServer) {
    const ConfiguredLibrary library;
    EXPECT_EQ(-1, exchange(kAccess));
    EXPECT_STREQ("", radLastError()->host);
    expectReason(RAD_STEP_PREPARE, RAD_REASON_NOT_CONFIGURED, "no server is configured for this");
    EXPECT_EQ(-1, exchange(2));
    expectReason(RAD_STEP_PREPARE, RAD_REASON_REQUEST_CODE,
                 "neither an Access-Request nor an Accounting-Request");
}

TEST_F(LastErrorTest, NoSecret) {
    const SilentPort server;
    const ServerEntry entry = serverEntry(server, 0);
    const ConfiguredLibrary library({.authServers = {entry}});
    dropSecret(entry);
    EXPECT_EQ(-1, exchange(kAccess));
    expectReason(RAD_STEP_PREPARE, RAD_REASON_NO_SECRET,
                 at(server.port(), "no shared secret is configured"));
}

TEST_F(LastErrorTest, NoOwnAddress) {
    const HostName nameless("nameless");
    const SilentPort server;
    const ConfiguredLibrary library({.authServers = {serverEntry(server, 0)}});
    library.root().write("/var/hosts", "");
    EXPECT_EQ(-1, exchange(kAccess));
    expectReason(
        RAD_STEP_PREPARE, RAD_REASON_NO_OWN_ADDRESS,
        at(server.port(), "this machine's own host name has no address for NAS-IP-Address"));
}

TEST_F(LastErrorTest, UnknownHost) {
    const ConfiguredLibrary library({.authServers = {{.host = "nowhere", .port = 1812}}});
    EXPECT_EQ(-1, exchange(kAccess));
    expectReason(RAD_STEP_RESOLVE, RAD_REASON_HOST_UNKNOWN, "nowhere:1812: host name not found");
}

TEST_F(LastErrorTest, UnknownHostThatIsSentToTheBroadcastAddress_IsStillAboutTheName) {
    const ConfiguredLibrary library({.authServers = {{.host = "nowhere", .port = 1812}}});
    library.root().write("/var/hosts", "127.1.2.3 gateway\nnone nowhere\n");
    const FailingCall failure("sendto", EACCES);
    EXPECT_EQ(-1, exchange(kAccess));
    ASSERT_TRUE(failure.happened()) << "it is sent to 255.255.255.255 all the same";
    expectReason(RAD_STEP_RESOLVE, RAD_REASON_HOST_UNKNOWN, "nowhere:1812: host name not found");
}

TEST_F(LastErrorTest, RequestThatCannotBePacked) {
    const SilentPort server;
    const ConfiguredLibrary library({.authServers = {serverEntry(server, 0)}});
    RadPair *list = nullptr;
    ASSERT_NE(nullptr, radPairAdd(&list, RAD_ATTR_STATE, std::string(300, 's').c_str(), -1));
    const PairList tooLong(list);
    EXPECT_EQ(-1, exchange(kAccess, list));
    expectReason(RAD_STEP_PREPARE, RAD_REASON_PACK,
                 at(server.port(), "an attribute cannot be packed into the request"));

    RadPair *many = nullptr;
    for (int i = 0; i < 17; ++i) {
        ASSERT_NE(nullptr, radPairAdd(&many, RAD_ATTR_STATE, std::string(253, 's').c_str(), 253));
    }
    const PairList owner(many);
    EXPECT_EQ(-1, exchange(kAccess, many));
    expectReason(RAD_STEP_PREPARE, RAD_REASON_TOO_LARGE,
                 at(server.port(), "the request has more than 4096 bytes"));

    const RandomBytes none({});
    EXPECT_EQ(-1, exchange(kAccess));
    expectReason(RAD_STEP_PREPARE, RAD_REASON_NO_RANDOM,
                 at(server.port(), "no random bytes for the request"));
    EXPECT_THAT(server.received(), IsEmpty());
}

TEST_F(LastErrorTest, ExhaustedMemory_LeavesARecordWithoutACode) {
    ScriptedServer server(kSecret);
    server.otherwise(accept(Attributes().addText(18, "x")));
    const ConfiguredLibrary library({.authServers = {serverEntry(server, kPlenty)}});
    size_t toldAsMemory = 0;
    forEachFailingAllocation([&] {
        const PairList pairs = nemo();
        if (pairs == nullptr) {
            return;
        }
        const int result = exchange(kAccess, pairs.get());
        reply_.reset();
        const RadLastError *error = radLastError();
        ASSERT_NE(nullptr, error);
        EXPECT_EQ(result == 2, error->code == 2 && error->reason == 0);
        toldAsMemory += error->reason == RAD_REASON_NO_MEMORY ? 1 : 0;
        EXPECT_TRUE(error->reason != 0 || result == 2);
    });
    EXPECT_EQ(2U, toldAsMemory) << "the packet that is sent and the one that is read";
}

// Several servers.

TEST_F(LastErrorTest, FailOver_HasARecordForEachServerInOrder) {
    const SilentPort first;
    const ScriptedServer second(kSecret, {accept().withWrongAuthenticator()});
    const ScriptedServer third(kSecret, {reject()});
    const SilentPort fourth;
    const ConfiguredLibrary library(
        {.authServers = {serverEntry(first, 0), serverEntry(second, kPlenty),
                         serverEntry(third, kPlenty), serverEntry(fourth, 0)}});
    EXPECT_EQ(3, exchange(kAccess));
    EXPECT_THAT(
        lines(),
        ElementsAre(
            at(first.port(), "no reply in 1 try of 0 s: server down, wrong port, or wrong secret"),
            at(second.port(),
               "reply refused: wrong response authenticator: wrong secret, or not from the server"),
            at(third.port(), "rejected by the server (Access-Reject)")));
    EXPECT_EQ(radLastErrorAt(2), radLastError());
    EXPECT_EQ(nullptr, radLastErrorAt(3));
    EXPECT_EQ(nullptr, radLastErrorAt(-1));
}

TEST_F(LastErrorTest, EightServers_HaveEightRecords) {
    const SilentPort server;
    LibraryConfiguration configuration;
    for (int i = 0; i < RAD_SERVERS_MAX; ++i) {
        configuration.authServers.push_back(serverEntry(server, 0, i));
    }
    const ConfiguredLibrary library(configuration);
    EXPECT_EQ(-1, exchangeWithAll(kAccess));
    for (int i = 0; i < RAD_SERVERS_MAX; ++i) {
        ASSERT_NE(nullptr, radLastErrorAt(i));
        EXPECT_EQ(i + 1, radLastErrorAt(i)->tries);
    }
    EXPECT_EQ(nullptr, radLastErrorAt(RAD_SERVERS_MAX));
    EXPECT_EQ(radLastErrorAt(RAD_SERVERS_MAX - 1), radLastError());
}

TEST_F(LastErrorTest, EveryRequestBeginsAnew) {
    const SilentPort first;
    const ScriptedServer second(kSecret, {reject()});
    const ConfiguredLibrary library(
        {.authServers = {serverEntry(first, 0), serverEntry(second, kPlenty)}});
    EXPECT_EQ(3, exchange(kAccess));
    EXPECT_EQ(-1, exchange(kAccounting));
    EXPECT_THAT(lines(), ElementsAre("no server is configured for this"));
    RadPair *reply = nullptr;
    EXPECT_EQ(-1, radBuildAndSendReq(kAccess, nullptr, &reply));
    EXPECT_EQ(nullptr, radLastError());
}

TEST_F(LastErrorTest, RequestWithoutResults_ForgetsTheOneBefore) {
    const SilentPort server;
    const ConfiguredLibrary library({.authServers = {serverEntry(server, 0)}});
    EXPECT_EQ(-1, exchange(kAccess));
    ASSERT_NE(nullptr, radLastError());
    RadPair *reply = nullptr;
    EXPECT_EQ(-1, radBuildAndSendReqCheckAllServer(kAccess, nemo().get(), &reply, nullptr));
    EXPECT_EQ(nullptr, radLastError());
}

TEST_F(LastErrorTest, RequestToOneServer_IsRecordedAlone) {
    const SilentPort first;
    const ScriptedServer second(kSecret, {reject()});
    const ConfiguredLibrary library({.authServers = {serverEntry(first, 0)}});
    EXPECT_EQ(-1, exchange(kAccess));
    EXPECT_EQ(3, sendTo(second.host(), second.port(), kPlenty));
    EXPECT_THAT(lines(), ElementsAre(at(second.port(), "rejected by the server (Access-Reject)")));
    RadPair *reply = nullptr;
    EXPECT_EQ(-1, radSendtoServer(nullptr, nemo().get(), &reply));
    EXPECT_EQ(nullptr, radLastError());
}

// The line.

TEST_F(LastErrorTest, LongHostName_IsCut) {
    const ConfiguredLibrary library;
    EXPECT_EQ(-1, sendTo(std::string(400, 'n'), 1812, 0));
    EXPECT_THAT(lines(), ElementsAre(std::string(255, 'n') + ":1812: host name not found"));
}

TEST_F(LastErrorTest, TextThatDoesNotFit_IsCutAndMeasured) {
    RadLastError error{};
    error.reason = RAD_REASON_NO_MEMORY;
    std::array<char, 6> text{};
    EXPECT_EQ(13, radLastErrorText(&error, text.data(), text.size()));
    EXPECT_STREQ("out o", text.data());
    EXPECT_EQ(13, radLastErrorText(&error, text.data(), 1));
    EXPECT_STREQ("", text.data());
}

TEST_F(LastErrorTest, TextNeedsItsArguments) {
    const RadLastError error{};
    std::array<char, 6> text{"kept"};
    EXPECT_EQ(-1, radLastErrorText(nullptr, text.data(), text.size()));
    EXPECT_EQ(-1, radLastErrorText(&error, nullptr, text.size()));
    EXPECT_EQ(-1, radLastErrorText(&error, text.data(), 0));
    EXPECT_STREQ("kept", text.data());
}

}  // namespace
}  // namespace lanyard::test::last_error_test
