// The interface itself, one end of a veth pair in a network namespace that the test makes for itself.
#include "tools/pnac_wired/ethernet.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "tests/unit/tools/pnac_wired/world.h"
#include "tools/file_descriptor.h"

namespace lanyard::test::ethernet_test {
namespace {

using pnac::Ethernet;
using testing::Each;

int run(const std::string &command) {
    return std::system(command.c_str());  // NOLINT(cert-env33-c): the test's own words
}

class EthernetTest : public testing::Test {
  protected:
    void SetUp() override {
        if (unshare(CLONE_NEWNET) != 0) {
            GTEST_SKIP() << "no right to make network namespaces";
        }
        ASSERT_EQ(0, run("ip link add port type veth peer name user && "
                         "ip link set port up && ip link set user up"));
        sockaddr_ll place = {};
        place.sll_family = AF_PACKET;
        place.sll_ifindex = static_cast<int>(if_nametoindex("user"));
        user.emplace(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0), "packet socket");
        ASSERT_EQ(0, bind(user->get(), reinterpret_cast<const sockaddr *>(&place), sizeof(place)));
    }

    void supplicantSends(ByteView frame) const {
        EXPECT_EQ(static_cast<ssize_t>(frame.size()),
                  send(user->get(), frame.data(), frame.size(), 0));
    }

    // The next frame; none fails the test.
    static Bytes received(Ethernet &port) {
        pollfd waiting{.fd = port.frames(), .events = POLLIN, .revents = 0};
        EXPECT_EQ(1, poll(&waiting, 1, 5000));
        const auto frame = port.receive();
        EXPECT_TRUE(frame.has_value());
        return frame ? Bytes(frame->begin(), frame->end()) : Bytes();
    }

    // What comes until the link is as awaited.
    static std::vector<Ethernet::Link> newsUntil(Ethernet &port, Ethernet::Link awaited) {
        std::vector<Ethernet::Link> news;
        pollfd waiting{.fd = port.linkNews(), .events = POLLIN, .revents = 0};
        while ((news.empty() || news.back() != awaited) && poll(&waiting, 1, 5000) == 1) {
            port.receiveLink([&news](Ethernet::Link link) { news.push_back(link); });
        }
        return news;
    }

    std::optional<FileDescriptor> user;
    const Mac alice = macOf(1);
};

TEST_F(EthernetTest, TakesFramesToThePaeGroup) {
    Ethernet port("port");
    const Bytes start = eapolFrame(alice, 1, {});
    supplicantSends(start);
    EXPECT_BYTES_EQ(start, received(port));
    EXPECT_EQ(std::nullopt, port.receive());
}

TEST_F(EthernetTest, TakesNothingOfAVlan) {
    Ethernet port("port");
    const Bytes start = eapolFrame(alice, 1, {});
    const auto tagged = [&start](ByteView tag) {
        return concatenate({ByteView(start).first(12), tag, ByteView(start).subspan(12)});
    };
    supplicantSends(tagged("8100 0005"_hex));
    EXPECT_BYTES_EQ(Bytes(), received(port));
    supplicantSends(tagged("8100 e000"_hex));
    EXPECT_BYTES_EQ(start, received(port)) << "a priority alone is no VLAN";
}

TEST_F(EthernetTest, CountsWhatDoesNotFit) {
    Ethernet port("port");
    port.send(pnac::buildFrame(alice, port.address(), 1, Bytes(1496)));
    EXPECT_EQ(0U, port.notSent());
    port.send(pnac::buildFrame(alice, port.address(), 1, Bytes(1497)));
    EXPECT_EQ(1U, port.notSent());
}

TEST_F(EthernetTest, HasRoomForManyFrames) {
    const Ethernet port("port");
    int room = 0;
    socklen_t size = sizeof(room);
    EXPECT_EQ(0, getsockopt(port.frames(), SOL_SOCKET, SO_RCVBUF, &room, &size));
    EXPECT_GE(room, 1 << 20);
}

TEST_F(EthernetTest, TellsOfItsLink) {
    using Link = Ethernet::Link;
    Ethernet port("port");
    // More than once where the kernel's own news of the start comes in between.
    EXPECT_THAT(newsUntil(port, Link::kUp), Each(Link::kUp));
    ASSERT_EQ(0, run("ip link set user down"));
    EXPECT_EQ(Link::kDown, newsUntil(port, Link::kDown).back());
    ASSERT_EQ(0, run("ip link set user up"));
    EXPECT_EQ(Link::kUp, newsUntil(port, Link::kUp).back());
    const Bytes start = eapolFrame(alice, 1, {});
    supplicantSends(start);
    EXPECT_BYTES_EQ(start, received(port)) << "as before";
    ASSERT_EQ(0, run("ip link del port"));
    EXPECT_EQ(Link::kGone, newsUntil(port, Link::kGone).back());
}

TEST_F(EthernetTest, HasToBeAnEthernetThatThereIs) {
    EXPECT_THROW(Ethernet("none"), std::system_error);
    EXPECT_THROW(Ethernet(""), std::runtime_error);
    EXPECT_THROW(Ethernet("a-name-longer-than-any"), std::runtime_error);
    EXPECT_THROW(Ethernet("lo"), std::runtime_error);
}

}  // namespace
}  // namespace lanyard::test::ethernet_test
