// A cable with somebody on it who starts login after login and ends none: everybody else gets in.
#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <cstring>
#include <linux/if_packet.h>
#include <map>
#include <net/if.h>
#include <optional>
#include <poll.h>
#include <sys/socket.h>
#include <thread>

#include "tests/e2e/end_to_end.h"
#include "tools/file_descriptor.h"
#include "tools/pnac_wired/eapol.h"

namespace lanyard::test::flood_test {
namespace {

using pnac::Bytes;
using pnac::ByteView;
using pnac::Mac;

// Speaks EAPOL by hand, for any address.
class Attacker {
  public:
    explicit Attacker(const VirtualWire &wire) : socket_(open(wire)) {}

    // Starts a login of an address, gives a name of that size and turns away from what comes of it.
    // Returns the code of the answer; nothing when there is none.
    std::optional<EapCode> identify(const Mac &address, size_t size) {
        send(address, pnac::EapolType::kStart);
        const auto request = answer(address);
        if (!request) {
            return std::nullopt;
        }
        Bytes response(kEapHeaderSize + 1 + size, 'x');
        response[0] = static_cast<uint8_t>(EapCode::kResponse);
        response[1] = request->identifier;
        response[2] = static_cast<uint8_t>(response.size() >> 8);
        response[3] = static_cast<uint8_t>(response.size());
        response[4] = kEapTypeIdentity;
        send(pnac::buildFrame(pnac::kPaeGroup, address, 1, response));
        const auto verdict = answer(address);
        send(address, pnac::EapolType::kLogoff);
        return verdict ? std::optional(verdict->code) : std::nullopt;
    }

  private:
    static constexpr size_t kTypeOffset = 15;
    static constexpr size_t kBodyOffset = 18;
    static constexpr int kPatience = 20000;  // milliseconds

    static FileDescriptor open(const VirtualWire &wire) {
        const VirtualWire::SupplicantsSide side(wire);
        FileDescriptor made(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0), "packet socket");
        sockaddr_ll place = {};
        place.sll_family = AF_PACKET;
        place.sll_protocol = htons(pnac::kEapolEtherType);
        place.sll_ifindex = static_cast<int>(if_nametoindex(VirtualWire::kUser));
        checked(bind(made.get(), reinterpret_cast<const sockaddr *>(&place), sizeof place),
                "packet socket");
        return made;
    }

    void send(ByteView frame) const {
        checked(static_cast<int>(::send(socket_.get(), frame.data(), frame.size(), 0)), "frame");
    }

    void send(const Mac &address, pnac::EapolType type) const {
        Bytes frame = pnac::buildFrame(pnac::kPaeGroup, address, 1, {});
        frame[kTypeOffset] = static_cast<uint8_t>(type);
        send(frame);
    }

    // The next EAP packet to that address; it ends with the next call.
    std::optional<pnac::EapPacket> answer(const Mac &address) {
        pollfd waiting{.fd = socket_.get(), .events = POLLIN, .revents = 0};
        while (poll(&waiting, 1, kPatience) == 1) {
            const ssize_t size = recv(socket_.get(), room_.data(), room_.size(), 0);
            if (size > static_cast<ssize_t>(kBodyOffset) &&
                std::memcmp(room_.data(), address.data(), address.size()) == 0) {
                return pnac::parseEap(
                    ByteView(room_).first(static_cast<size_t>(size)).subspan(kBodyOffset));
            }
        }
        return std::nullopt;
    }

    FileDescriptor socket_;
    std::array<uint8_t, 2048> room_ = {};
};

// What two minutes of thirty a second bring.
constexpr unsigned kIdentities = 3600;

class Flood : public EndToEnd {
  protected:
    // Has somebody give so many names of that size, with an address each or with one, and others
    // log in from the beginning to the end of it.
    // Returns how many names were answered with each code.
    std::map<EapCode, unsigned> survive(size_t size, bool manyAddresses) {
        device().startAuthenticator();
        Attacker attacker(wire());
        std::map<EapCode, unsigned> answers;
        std::atomic<bool> over = false;
        std::thread attack([&] {
            for (unsigned i = 0; i < kIdentities; ++i) {
                const unsigned number = manyAddresses ? i : 0;
                const auto code =
                    attacker.identify({0x02, 0x66, 0, 0, static_cast<uint8_t>(number >> 8),
                                       static_cast<uint8_t>(number)},
                                      size);
                if (!code) {
                    break;
                }
                ++answers[*code];
            }
            over = true;
        });
        for (bool last = false; !last;) {
            last = over;  // one more after the end
            for (const Account &account : {md5Account("alice", "wonderland"),
                                           peapAccount(server(), "alice", "wonderland")}) {
                expectLogin(account);
            }
        }
        attack.join();
        return answers;
    }

  private:
    static void expectLogin(const Account &account) {
        Supplicant supplicant(wire(), account, wire().stations(1).front().interface);
        supplicant.awaitReady();
        supplicant.start();
        EXPECT_TRUE(supplicant.succeeds());
    }
};

TEST_F(Flood, FloodOfLongNames_RefusedAtOnce) {
    const auto answers = survive(1400, false);
    EXPECT_EQ((std::map<EapCode, unsigned>{{EapCode::kFailure, kIdentities}}), answers);
}

TEST_F(Flood, FloodOfNamesFromAnAddressEach_AnsweredToTheEnd) {
    unsigned all = 0;
    for (const auto &[code, count] : survive(253, true)) {
        all += count;
    }
    EXPECT_EQ(kIdentities, all);
}

}  // namespace
}  // namespace lanyard::test::flood_test
