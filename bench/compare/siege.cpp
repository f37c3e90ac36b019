#include "bench/compare/siege.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <chrono>
#include <linux/if_packet.h>
#include <memory>
#include <net/if.h>
#include <random>
#include <set>
#include <sys/socket.h>
#include <utility>

#include "bench/compare/raw_frames.h"
#include "tools/file_descriptor.h"

namespace lanyard::bench {

namespace {

using Bytes = std::vector<uint8_t>;
using pnac::EapolType;
using pnac::Mac;
using std::chrono::steady_clock;

constexpr size_t kSenderAt = 6;
constexpr size_t kPacketTypeAt = 15;
constexpr size_t kBodyMax = 1496;  // of an Ethernet frame
constexpr size_t kIdentityMax = kBodyMax - kEapHeaderSize - 1;

Mac invented(uint32_t number) {
    return {kInvented >> 8,
            kInvented & 0xff,
            static_cast<uint8_t>(number >> 24),
            static_cast<uint8_t>(number >> 16),
            static_cast<uint8_t>(number >> 8),
            static_cast<uint8_t>(number)};
}

bool isInvented(const Mac &address) {
    return address[0] == kInvented >> 8 && address[1] == (kInvented & 0xff);
}

Bytes identityResponse(uint8_t identifier, const std::string &identity) {
    const size_t size = kEapHeaderSize + 1 + identity.size();
    Bytes packet = {static_cast<uint8_t>(EapCode::kResponse), identifier,
                    static_cast<uint8_t>(size >> 8), static_cast<uint8_t>(size), kEapTypeIdentity};
    packet.insert(packet.end(), identity.begin(), identity.end());
    return packet;
}

// A socket that forgets what does not go out.
class Sender {
  public:
    Sender(const test::VirtualWire &wire, Frames frames) : socket_(rawSocket(wire, frames)) {}

    size_t send(pnac::ByteView frame) const {
        return ::send(socket_.get(), frame.data(), frame.size(), 0) > 0 ? 1 : 0;
    }
    size_t send(const Mac &source, EapolType type, pnac::ByteView body = {}) const {
        return send(supplicantFrame(source, type, body));
    }
    int socket() const { return socket_.get(); }

  private:
    FileDescriptor socket_;
};

// The next frame that has come; empty for none.
Bytes receive(int socket) {
    Bytes frame(2048);
    const ssize_t size = recv(socket, frame.data(), frame.size(), 0);
    frame.resize(static_cast<size_t>(std::max<ssize_t>(size, 0)));
    return frame;
}

// Begins a login of another address with each step, and gives names to who asks for them.
AttackStep begin(const test::VirtualWire &wire, std::function<std::string()> identity) {
    auto sender = std::make_shared<Sender>(wire, Frames::kSendAndReceive);
    return [sender, identity = std::move(identity), number = uint32_t{0}]() mutable {
        size_t sent = sender->send(invented(number++), EapolType::kStart);
        for (Bytes frame = receive(sender->socket()); !frame.empty();
             frame = receive(sender->socket())) {
            Mac to = {};
            std::copy_n(frame.begin(), std::min(to.size(), frame.size()), to.begin());
            const Bytes eap = isInvented(to) ? eapOf(frame, to) : Bytes();
            if (eap.size() > kEapHeaderSize && eap[kEapHeaderSize] == kEapTypeIdentity) {
                sent += sender->send(to, EapolType::kEap, identityResponse(eap[1], identity()));
            }
        }
        return sent;
    };
}

// What comes in at the port, where the thread is.
FileDescriptor portSocket() {
    FileDescriptor made(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0),
                        "packet socket");
    sockaddr_ll place = {};
    place.sll_family = AF_PACKET;
    place.sll_protocol = htons(pnac::kEapolEtherType);
    place.sll_ifindex = static_cast<int>(if_nametoindex(test::VirtualWire::kPort));
    checked(bind(made.get(), reinterpret_cast<const sockaddr *>(&place), sizeof place),
            test::VirtualWire::kPort);
    return made;
}

}  // namespace

AttackStep sendJunk(const test::VirtualWire &wire) {
    constexpr size_t kFrames = 256;
    std::mt19937 random(1);
    std::vector<Bytes> frames;
    for (uint32_t i = 0; i < kFrames; ++i) {
        Bytes body(random() % kBodyMax);
        std::generate(body.begin(), body.end(), [&] { return static_cast<uint8_t>(random()); });
        if (!body.empty()) {
            body[0] = static_cast<uint8_t>(random() % 5);  // a code, perhaps
        }
        frames.push_back(supplicantFrame(invented(i % 16), EapolType::kEap, body));
        frames.back()[kPacketTypeAt] = static_cast<uint8_t>(random() % 5);
    }
    auto sender = std::make_shared<Sender>(wire, Frames::kSend);
    return [sender, frames, next = size_t{0}]() mutable {
        return sender->send(frames[next++ % frames.size()]);
    };
}

AttackStep inventAddresses(const test::VirtualWire &wire) {
    auto sender = std::make_shared<Sender>(wire, Frames::kSend);
    Bytes frame = supplicantFrame(invented(0), EapolType::kStart);
    return [sender, frame, number = uint32_t{0}]() mutable {
        const Mac source = invented(number++);
        std::copy(source.begin(), source.end(), frame.begin() + kSenderAt);
        return sender->send(frame);
    };
}

AttackStep giveIdentities(const test::VirtualWire &wire) {
    return begin(wire, [length = size_t{0}]() mutable {
        return std::string(length++ % (kIdentityMax + 1), 'x');
    });
}

AttackStep leaveHalfOpen(const test::VirtualWire &wire, const std::string &identity) {
    return begin(wire, [identity] { return identity; });
}

AttackStep logOffOthers(const test::VirtualWire &wire, const Addresses &victims) {
    auto sender = std::make_shared<Sender>(wire, Frames::kSend);
    return [sender, victims, next = size_t{0}]() mutable {
        return sender->send(victims[next++ % victims.size()], EapolType::kLogoff);
    };
}

AttackStep replay(const test::VirtualWire &wire, const Addresses &victims) {
    static constexpr size_t kKept = 256;
    struct Recorder {
        Sender sender;
        FileDescriptor tap;
        std::set<Bytes> known = {};  // its own come by again
        std::vector<Bytes> frames = {};
        size_t next = 0;
    };
    auto recorder =
        std::make_shared<Recorder>(Recorder{.sender = {wire, Frames::kSend}, .tap = portSocket()});
    return [recorder, victims]() {
        for (Bytes frame = receive(recorder->tap.get()); !frame.empty();
             frame = receive(recorder->tap.get())) {
            const bool ofVictim =
                std::any_of(victims.begin(), victims.end(), [&](const Mac &victim) {
                    return frame.size() > kSenderAt + victim.size() &&
                           std::equal(victim.begin(), victim.end(), frame.begin() + kSenderAt);
                });
            if (ofVictim && recorder->known.insert(frame).second) {
                recorder->frames.push_back(frame);
            }
        }
        // The latest of them.
        const size_t count = std::min(recorder->frames.size(), kKept);
        return count == 0
                   ? 0
                   : recorder->sender.send(
                         recorder->frames[recorder->frames.size() - 1 - recorder->next++ % count]);
    };
}

Siege::Siege(AttackStep step, unsigned stepsASecond)
    : step_(std::move(step)), thread_([this, stepsASecond] { run(stepsASecond); }) {}

uint64_t Siege::end() {
    over_ = true;
    if (thread_.joinable()) {
        thread_.join();
    }
    return frames_;
}

void Siege::run(unsigned stepsASecond) {
    const auto start = steady_clock::now();
    for (uint64_t steps = 1; !over_; ++steps) {
        frames_ += step_();
        if (stepsASecond != 0) {
            std::this_thread::sleep_until(
                start + steps * steady_clock::duration(std::chrono::seconds(1)) / stepsASecond);
        }
    }
}

}  // namespace lanyard::bench
