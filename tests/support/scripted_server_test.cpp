// A server that does as its script says, and ports without one.
#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <gtest/gtest-spi.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/engine.h>

#include "tests/support/sample_exchange.h"
#include "tests/support/test.h"
#include "tools/file_descriptor.h"

namespace lanyard::test::scripted_server_test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

// A client's socket that is connected to a server; receiving takes at most two seconds.
class Client {
  public:
    Client(const std::string &host, uint16_t port)
        : socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket") {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        EXPECT_EQ(1, inet_pton(AF_INET, host.c_str(), &address.sin_addr));
        EXPECT_EQ(0, connect(socket_.get(), reinterpret_cast<const sockaddr *>(&address),
                             sizeof(address)));
    }
    explicit Client(const ScriptedServer &server) : Client(server.host(), server.port()) {}

    void send(ByteView datagram) const {
        EXPECT_EQ(static_cast<ssize_t>(datagram.size()),
                  ::send(socket_.get(), datagram.data(), datagram.size(), 0));
    }

    [[nodiscard]] Bytes receive() const {
        pollfd watched = {socket_.get(), POLLIN, 0};
        EXPECT_EQ(1, poll(&watched, 1, 2000)) << "no datagram";
        Bytes datagram(4096);
        const ssize_t length = recv(socket_.get(), datagram.data(), datagram.size(), MSG_DONTWAIT);
        EXPECT_LE(0, length) << std::strerror(errno);
        datagram.resize(length > 0 ? static_cast<size_t>(length) : 0);
        return datagram;
    }

    [[nodiscard]] Bytes exchange(ByteView datagram) const {
        send(datagram);
        return receive();
    }

    [[nodiscard]] int get() const { return socket_.get(); }

  private:
    FileDescriptor socket_;
};

TEST(ScriptedServerTest, FollowsItsScriptAndRecordsWhatItGot) {
    ScriptedServer server(kSecret, {accept(sampleReplyAttributes())});
    server.then(reject()).otherwise(challenge());
    const Client client(server);
    EXPECT_BYTES_EQ(sampleReply(), client.exchange(sampleRequest()));
    EXPECT_EQ(1U, server.unusedActions());
    EXPECT_EQ(3, client.exchange(sampleRequest())[0]);
    EXPECT_EQ(11, client.exchange(sampleRequest())[0]);
    ASSERT_TRUE(server.waitForRequests(3));
    EXPECT_FALSE(server.waitForRequests(4, 1ms));
    EXPECT_BYTES_EQ(sampleRequest(), server.request(0));
    EXPECT_EQ("arctangent", revealPassword(server.request(0), kSecret));
    EXPECT_EQ("127.0.0.1", server.request(0).sourceAddress);
    EXPECT_LT(server.request(0).arrival, server.request(2).arrival);
    EXPECT_NONFATAL_FAILURE((void)server.request(3), "only 3 requests have arrived");
}

TEST(ScriptedServerTest, MakesEachFaultTheOnlyOne) {
    const Attributes attributes = Attributes().addText(18, "Hello").addMessageAuthenticator();
    ScriptedServer server(
        kSecret, {accept(attributes), accept(attributes).withWrongIdentifier(),
                  accept(attributes).withWrongAuthenticator(),
                  accept(attributes).withWrongMessageAuthenticator(),
                  accept(attributes).withLengthField(27), accept(attributes).truncatedTo(19),
                  accept(attributes).withTrailing("aabb"_hex), sendRaw("ff"_hex)});
    const Client client(server);
    const Bytes request = sampleRequest();

    const Bytes good = client.exchange(request);
    EXPECT_TRUE(replyIsValid(good, request, kSecret));

    const Bytes wrongIdentifier = client.exchange(request);
    EXPECT_EQ(request[1] + 1, wrongIdentifier[1]);
    EXPECT_TRUE(replyIsValid(wrongIdentifier, request, kSecret));

    EXPECT_FALSE(replyIsValid(client.exchange(request), request, kSecret));

    const Bytes wrongSignature = client.exchange(request);
    EXPECT_TRUE(replyIsValid(wrongSignature, request, kSecret));
    EXPECT_NE(attributeValue(good, 80), attributeValue(wrongSignature, 80));

    const Bytes wrongLength = client.exchange(request);
    EXPECT_EQ(27, wrongLength[3]);
    EXPECT_EQ(good.size(), wrongLength.size());
    EXPECT_TRUE(replyIsValid(wrongLength, request, kSecret));

    EXPECT_BYTES_EQ(ByteView(good).first(19), client.exchange(request));
    EXPECT_BYTES_EQ(concatenate({good, "aabb"_hex}), client.exchange(request));
    EXPECT_BYTES_EQ("ff"_hex, client.exchange(request));
    EXPECT_THROW(silence().withWrongIdentifier(), std::logic_error);
}

// The library reads the reply's signature as the server writes it.
TEST(ScriptedServerTest, SignsRepliesAsTheLibraryChecksThem) {
    const ConfiguredLibrary library;
    const Bytes request = sampleRequest();
    Bytes reply = makeReply(2, request, kSecret, Attributes().addMessageAuthenticator());
    EXPECT_EQ(0,
              radCheckMsgAuth(reinterpret_cast<RadPacket *>(reply.data()), kSecret, &request[4]));
    reply = makeReply(2, request, kSecret, Attributes().addMessageAuthenticator(),
                      {.wrongMessageAuthenticator = true});
    EXPECT_EQ(-1,
              radCheckMsgAuth(reinterpret_cast<RadPacket *>(reply.data()), kSecret, &request[4]));
}

TEST(ScriptedServerTest, AnswersLateTwiceFromElsewhereOrByFunction) {
    ScriptedServer server(
        kSecret,
        {reject().delayed(200ms), accept(), accept().twice(),
         accept([](const ReceivedRequest &request) {
             return Attributes().add(24, request.authenticator());
         }),
         respond([](const ReceivedRequest &request) { return Bytes{request.identifier()}; }),
         silence()});
    const Client client(server);
    client.send(sampleRequest());
    client.send(sampleRequest());
    EXPECT_EQ(2, client.receive()[0]) << "a delayed answer holds up those after it";
    EXPECT_EQ(3, client.receive()[0]);
    EXPECT_LE(200ms, std::chrono::steady_clock::now() - server.request(0).arrival);

    const Bytes once = client.exchange(sampleRequest());
    EXPECT_BYTES_EQ(once, client.receive());

    EXPECT_BYTES_EQ(ByteView(sampleRequest()).subspan(4, 16),
                    attributeValue(client.exchange(sampleRequest()), 24));
    EXPECT_BYTES_EQ("00"_hex, client.exchange(sampleRequest()));
    client.send(sampleRequest());
    ASSERT_TRUE(server.waitForRequests(6));

    // A connected client does not take the answer from elsewhere, and takes the next.
    server.then(accept().fromOtherPort()).then(reject());
    client.send(sampleRequest());
    EXPECT_EQ(3, client.exchange(sampleRequest())[0]);
}

TEST(ScriptedServerTest, SaysWhatItCannotAnswer) {
    EXPECT_NONFATAL_FAILURE_ON_ALL_THREADS(
        {
            ScriptedServer server(kSecret, {accept(), sendRaw("01"_hex)});
            const Client client(server);
            client.send("0100"_hex);
            (void)client.exchange("0100"_hex);
        },
        "the scripted server cannot answer");
}

TEST(PortTest, SilentOneTakesAndRefusedOneRefuses) {
    const SilentPort silent("127.0.0.2");
    const Client toSilent(silent.host(), silent.port());
    toSilent.send("aa"_hex);
    EXPECT_THAT(silent.received(), ElementsAre("aa"_hex));
    EXPECT_THAT(silent.received(), IsEmpty());

    const RefusedPort refused;
    const Client toRefused(refused.host(), refused.port());
    toRefused.send("aa"_hex);
    pollfd watched = {toRefused.get(), POLLIN, 0};
    ASSERT_EQ(1, poll(&watched, 1, 2000));
    char byte = 0;
    EXPECT_EQ(-1, recv(toRefused.get(), &byte, 1, MSG_DONTWAIT));
    EXPECT_EQ(ECONNREFUSED, errno);
}

}  // namespace
}  // namespace lanyard::test::scripted_server_test
