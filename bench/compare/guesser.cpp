#include "bench/compare/guesser.h"

#include <algorithm>
#include <array>
#include <poll.h>
#include <sys/socket.h>
#include <vector>

#include "bench/compare/raw_frames.h"
#include "tools/file_descriptor.h"

namespace lanyard::bench {

namespace {

using Clock = std::chrono::steady_clock;
using Bytes = std::vector<uint8_t>;

constexpr pnac::Mac kAddress = {0x02, 0, 0, 0xfe, 0, 2};
constexpr std::chrono::milliseconds kKnockEvery{1000};  // then he knocks again
constexpr uint8_t kIdentity = 1;
constexpr uint8_t kMd5Challenge = 4;
constexpr size_t kDigestSize = 16;
constexpr size_t kEapTypeAt = 4;

Bytes response(uint8_t identifier, uint8_t type, const Bytes &data) {
    Bytes packet(kEapHeaderSize + 1 + data.size());
    packet[0] = static_cast<uint8_t>(EapCode::kResponse);
    packet[1] = identifier;
    packet[2] = static_cast<uint8_t>(packet.size() >> 8);
    packet[3] = static_cast<uint8_t>(packet.size() & 0xff);
    packet[kEapTypeAt] = type;
    std::copy(data.begin(), data.end(), packet.begin() + kEapTypeAt + 1);
    return packet;
}

class Guesser {
  public:
    Guesser(const test::VirtualWire &wire, const std::string &identity)
        : socket_(rawSocket(wire, Frames::kSendAndReceive)),
          identity_(identity.begin(), identity.end()) {}

    size_t run(Clock::time_point end) {
        while (Clock::now() < end) {
            if (knocksAt_ <= Clock::now()) {
                send(pnac::EapolType::kStart, {});
                knocksAt_ = Clock::now() + kKnockEvery;
            }
            pollfd watched = {socket_.get(), POLLIN, 0};
            poll(&watched, 1, 10);
            std::array<uint8_t, 2048> frame;
            const ssize_t size = recv(socket_.get(), frame.data(), frame.size(), 0);
            if (size > 0) {
                take(eapOf(pnac::ByteView(frame.data(), static_cast<size_t>(size)), kAddress));
            }
        }
        return verdicts_;
    }

  private:
    void take(const Bytes &eap) {
        if (eap.empty()) {
            return;
        }
        const auto code = static_cast<EapCode>(eap[0]);
        if (code == EapCode::kFailure) {
            verdicts_ += guessed_ ? 1 : 0;
            guessed_ = false;
            knocksAt_ = Clock::now();
        } else if (code == EapCode::kRequest && eap.size() > kEapTypeAt) {
            answer(eap[1], eap[kEapTypeAt]);
        }
    }

    void answer(uint8_t identifier, uint8_t type) {
        if (type == kIdentity) {
            send(pnac::EapolType::kEap, response(identifier, kIdentity, identity_));
        } else if (type == kMd5Challenge) {
            Bytes digest(1 + kDigestSize, ++guess_);
            digest[0] = kDigestSize;
            send(pnac::EapolType::kEap, response(identifier, kMd5Challenge, digest));
            guessed_ = true;
        } else {
            return;
        }
        knocksAt_ = Clock::now() + kKnockEvery;
    }

    void send(pnac::EapolType type, const Bytes &body) {
        const Bytes frame = supplicantFrame(kAddress, type, body);
        checked(static_cast<int>(::send(socket_.get(), frame.data(), frame.size(), 0)),
                "EAPOL frame");
    }

    FileDescriptor socket_;
    Bytes identity_;
    Clock::time_point knocksAt_ = {};
    uint8_t guess_ = 0;
    bool guessed_ = false;
    size_t verdicts_ = 0;
};

}  // namespace

size_t guess(const test::VirtualWire &wire, const std::string &identity,
             std::chrono::duration<double> time) {
    return Guesser(wire, identity)
        .run(Clock::now() + std::chrono::duration_cast<Clock::duration>(time));
}

}  // namespace lanyard::bench
