#include "tests/support/udp_proxy.h"

#include <arpa/inet.h>
#include <chrono>
#include <memory>
#include <optional>
#include <poll.h>
#include <sys/socket.h>
#include <thread>

#include "tests/support/proxy_command.h"
#include "tests/support/test.h"

namespace lanyard::test::udp_proxy_test {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using testing::SizeIs;

constexpr int kPatience = 20000;  // milliseconds, for what is sure to come

// Sends what it gets back.
class Echo {
  public:
    Echo() {
        server_.otherwise(
            respond([](const ReceivedRequest &request) { return std::optional(request.bytes); }));
    }
    [[nodiscard]] const ScriptedServer &server() const { return server_; }
    [[nodiscard]] UdpProxy::Place place() const { return {server_.host(), server_.port()}; }

  private:
    ScriptedServer server_{"secret"};
};

class Client {
  public:
    explicit Client(const UdpProxy &proxy)
        : socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket") {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(proxy.port());
        EXPECT_EQ(1, inet_pton(AF_INET, proxy.host().c_str(), &address.sin_addr));
        checked(
            connect(socket_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address),
            "connect");
    }

    void send(ByteView datagram) const {
        EXPECT_EQ(static_cast<ssize_t>(datagram.size()),
                  ::send(socket_.get(), datagram.data(), datagram.size(), 0));
    }
    // Nothing when none comes, or the port is refused.
    [[nodiscard]] std::optional<Bytes> receive(int milliseconds = kPatience) const {
        pollfd watched = {socket_.get(), POLLIN, 0};
        Bytes datagram(4096);
        if (poll(&watched, 1, milliseconds) != 1) {
            return std::nullopt;
        }
        const ssize_t length = recv(socket_.get(), datagram.data(), datagram.size(), 0);
        if (length < 0) {
            refused_ = errno == ECONNREFUSED;
            return std::nullopt;
        }
        datagram.resize(static_cast<size_t>(length));
        return datagram;
    }
    [[nodiscard]] std::optional<Bytes> exchange(ByteView datagram) const {
        send(datagram);
        return receive();
    }
    [[nodiscard]] bool refused() const { return refused_; }

  private:
    FileDescriptor socket_;
    mutable bool refused_ = false;
};

Bytes numbered(size_t number) {
    return fromText("datagram " + std::to_string(number));
}

TEST(UdpProxy, NoTrouble_CarriesBothWays) {
    const Echo echo;
    const UdpProxy proxy(echo.place());
    const Client client(proxy);
    EXPECT_EQ("127.0.0.1", proxy.host());
    EXPECT_EQ(numbered(1), client.exchange(numbered(1)));
    EXPECT_EQ(numbered(2), client.exchange(numbered(2)));
    EXPECT_EQ(2U, proxy.counters().requests);
    EXPECT_EQ(2U, proxy.counters().replies);
}

TEST(UdpProxy, SeveralClients_ServerTellsThemApart) {
    const Echo echo;
    const UdpProxy proxy(echo.place());
    const Client one(proxy);
    const Client other(proxy);
    EXPECT_EQ(numbered(1), one.exchange(numbered(1)));
    EXPECT_EQ(numbered(2), other.exchange(numbered(2)));
    EXPECT_EQ(numbered(3), one.exchange(numbered(3)));
    const auto requests = echo.server().requests();
    ASSERT_THAT(requests, SizeIs(3));
    EXPECT_EQ(requests[0].sourcePort, requests[2].sourcePort);
    EXPECT_NE(requests[0].sourcePort, requests[1].sourcePort);
}

TEST(UdpProxy, MoreClientsThanDescriptors_AllAreServed) {
    const Echo echo;
    const UdpProxy proxy(echo.place());
    for (size_t i = 0; i < 5000; ++i) {
        ASSERT_EQ(numbered(i), Client(proxy).exchange(numbered(i)));
    }
}

TEST(UdpProxy, Delay_IsKeptEachWay) {
    const Echo echo;
    UdpProxy proxy(echo.place());
    proxy.set({.toServer = 30ms, .toClient = 70ms});
    const Client client(proxy);
    const auto sent = Clock::now();
    EXPECT_EQ(numbered(1), client.exchange(numbered(1)));
    const auto back = Clock::now();
    EXPECT_LE(sent + 30ms, echo.server().request(0).arrival);
    EXPECT_LE(echo.server().request(0).arrival + 69ms, back);
}

TEST(UdpProxy, ManyUnderWay_AllArriveInOrder) {
    const Echo echo;
    UdpProxy proxy(echo.place());
    proxy.set({.toServer = 100ms, .toClient = 100ms});
    std::vector<std::unique_ptr<Client>> clients;
    for (size_t i = 0; i < 10; ++i) {
        clients.push_back(std::make_unique<Client>(proxy));
    }
    for (size_t i = 0; i < 150; ++i) {
        clients[i % 10]->send(numbered(i));
    }
    for (size_t i = 0; i < 150; ++i) {
        ASSERT_EQ(numbered(i), clients[i % 10]->receive());
    }
}

// On a busy machine the second may come so late that the first is not held back any longer: there are more
// attempts then.
TEST(UdpProxy, Reorder_IsOvertaken) {
    constexpr unsigned kAttempts = 50;
    const Echo echo;
    UdpProxy proxy(echo.place());
    bool overtaken = false;
    for (unsigned attempt = 1; attempt <= kAttempts && !overtaken; ++attempt) {
        const Client client(proxy);
        proxy.set({.faults = {.reorder = 1}});
        client.send(numbered(1));
        // The proxy reads the first under these settings, the second without.
        while (proxy.counters().requests < 2 * attempt - 1) {
            std::this_thread::yield();
        }
        proxy.set({});
        client.send(numbered(2));
        const auto first = client.receive();
        const auto second = client.receive();
        overtaken = first == numbered(2);
        ASSERT_EQ(numbered(overtaken ? 1 : 2), second);
    }
    EXPECT_TRUE(overtaken);
}

TEST(UdpProxy, Lost_ComesNever) {
    const Echo echo;
    UdpProxy proxy(echo.place());
    const Client client(proxy);
    proxy.set({.faults = {.loss = 1}});
    client.send(numbered(1));
    while (proxy.counters().lost < 1) {
        std::this_thread::yield();
    }
    proxy.set({});
    EXPECT_EQ(numbered(2), client.exchange(numbered(2)));
    EXPECT_THAT(echo.server().requests(), SizeIs(1));
}

TEST(UdpProxy, DeadServer_SwallowsUntilItLives) {
    const Echo echo;
    UdpProxy proxy(echo.place());
    const Client client(proxy);
    proxy.set({.state = ServerState::kSilent});
    client.send(numbered(1));
    while (proxy.counters().swallowed < 1) {
        std::this_thread::yield();
    }
    proxy.set({});
    EXPECT_EQ(numbered(2), client.exchange(numbered(2)));
    EXPECT_FALSE(client.refused());
}

TEST(UdpProxy, RefusedPort_TellsUntilItLives) {
    const Echo echo;
    UdpProxy proxy(echo.place());
    const Client client(proxy);
    EXPECT_EQ(numbered(1), client.exchange(numbered(1)));
    proxy.set({.state = ServerState::kRefused});
    EXPECT_FALSE(client.exchange(numbered(2)));
    EXPECT_TRUE(client.refused());
    proxy.set({});
    EXPECT_EQ(numbered(3), client.exchange(numbered(3)));
}

// A refusal by the server reaches the proxy in place of the next datagram.
TEST(UdpProxy, ServerThatWasNotThere_IsReachedWhenItCame) {
    const Echo echo;
    auto nobody = std::make_unique<RefusedPort>();
    const UdpProxy::Place place{nobody->host(), nobody->port()};
    const UdpProxy proxy(place);
    const Client client(proxy);
    client.send(numbered(1));
    client.send(numbered(2));
    while (proxy.counters().requests < 2) {
        std::this_thread::yield();
    }
    nobody.reset();
    const UdpProxy server(echo.place(), place);
    EXPECT_EQ(numbered(3), client.exchange(numbered(3)));
}

TEST(UdpProxy, IgnoredUser_IsNotAnswered) {
    const Echo echo;
    UdpProxy proxy(echo.place());
    const Client client(proxy);
    proxy.set({.ignoredUser = "ghost"});
    const auto request = [](const char *name) {
        return makeRequest(1, Bytes(16), "secret", Attributes().addInteger(6, 8).addText(1, name));
    };
    client.send(request("ghost"));
    EXPECT_EQ(request("ghostly"), client.exchange(request("ghostly")));
    EXPECT_EQ(1U, proxy.counters().ignored);
    EXPECT_THAT(echo.server().requests(), SizeIs(1));
}

TEST(UdpProxy, Forgery_ComesAheadOfTheReply) {
    const Echo echo;
    UdpProxy proxy(echo.place());
    const Client client(proxy);
    proxy.set({.toClient = 5ms, .forgery = Forgery::kJunk});
    client.send(numbered(1));
    EXPECT_EQ(Bytes(7, 0xa5), client.receive());
    EXPECT_EQ(numbered(1), client.receive());
    EXPECT_EQ(1U, proxy.counters().forged);
}

TEST(UdpProxy, Flood_AnswersARequestThatTheServerDoesNot) {
    const SilentPort silent;
    UdpProxy proxy({silent.host(), silent.port()});
    proxy.set({.flood = 3});
    const Client client(proxy);
    client.send(numbered(7));
    for (int i = 0; i < 3; ++i) {
        const auto forged = client.receive();
        ASSERT_TRUE(forged);
        EXPECT_BYTES_EQ(forgedAccept(numbered(7)[1]), *forged);
    }
    EXPECT_EQ(3U, proxy.counters().forged);
    EXPECT_FALSE(client.receive(1));
}

TEST(UdpProxy, HostThatIsNoAddress_IsRefused) {
    EXPECT_THROW(UdpProxy({"nowhere", 1}), std::invalid_argument);
    EXPECT_THROW(UdpProxy({"127.0.0.1", 1}, {"192.0.2.1", 0}), std::system_error);
}

TEST(ProxyCommand, EachSetsWhatItNames) {
    ProxySettings settings;
    for (const char *line : {"delay 50", "delay-to-client 0.5", "loss 0.01", "duplicate 0.1",
                             "reorder 0.2", "truncate 0.3", "corrupt 1", "forge digest",
                             "forged-share 0.4", "flood 9", "ignore mad hatter", "dead on"}) {
        applyProxyCommand(line, settings);
    }
    EXPECT_EQ(50ms, settings.toServer);
    EXPECT_EQ(500us, settings.toClient);
    EXPECT_EQ(0.01, settings.faults.loss);
    EXPECT_EQ(0.1, settings.faults.duplicate);
    EXPECT_EQ(0.2, settings.faults.reorder);
    EXPECT_EQ(0.3, settings.faults.truncate);
    EXPECT_EQ(1, settings.faults.corrupt);
    EXPECT_EQ(Forgery::kDigest, settings.forgery);
    EXPECT_DOUBLE_EQ(0.4, settings.forgedShare);
    EXPECT_EQ(9, settings.flood);
    EXPECT_EQ("mad hatter", settings.ignoredUser);
    EXPECT_EQ(ServerState::kSilent, settings.state);
    for (const char *line : {"delay-to-server 7", "forge none", "ignore", "dead off"}) {
        applyProxyCommand(line, settings);
    }
    EXPECT_EQ(7ms, settings.toServer);
    EXPECT_EQ(Forgery::kNone, settings.forgery);
    EXPECT_EQ("", settings.ignoredUser);
    EXPECT_EQ(ServerState::kAlive, settings.state);
    applyProxyCommand("refused on", settings);
    EXPECT_EQ(ServerState::kRefused, settings.state);
}

TEST(ProxyCommand, WrongOnes_AreRefused) {
    ProxySettings settings;
    for (const char *line : {"", "los 0.1", "loss", "loss 2", "loss -1", "loss 0.1x", "loss nan",
                             "delay fast", "delay 1e9", "forge well", "dead", "dead yes"}) {
        EXPECT_THROW(applyProxyCommand(line, settings), std::invalid_argument) << line;
    }
    EXPECT_EQ(0, settings.faults.loss);
}

}  // namespace
}  // namespace lanyard::test::udp_proxy_test
