#include "bench/relay_bench.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <chrono>
#include <cstdio>
#include <netinet/in.h>
#include <optional>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <vector>

#include <palroot.h>

#include "bench/wire_capture.h"
#include "tests/e2e/device.h"
#include "tests/support/radius_wire.h"
#include "tools/file_descriptor.h"
#include "tools/pnac_wired/bus.h"
#include "tools/pnac_wired/relay_record.h"

namespace lanyard::bench {

namespace {

using std::chrono::milliseconds;
using test::Attributes;
using test::Bytes;

constexpr const char *kSecret = "benchmark";
constexpr milliseconds kPatience{5000};

constexpr uint8_t kChallenge = 11;
constexpr uint8_t kStateAttribute = 24;
constexpr uint8_t kEapMessageAttribute = 79;
constexpr size_t kStateSize = 16;  // as freeradius has it
constexpr size_t kAttributeMax = 253;
constexpr size_t kSmall = 22;    // an EAP-MD5 packet
constexpr size_t kLarge = 1034;  // a TLS fragment of 1024 octets

Moment now() {
    return std::chrono::system_clock::now().time_since_epoch();
}

Bytes eapPacket(EapCode code, uint8_t identifier, uint8_t type, size_t size) {
    Bytes packet(size, 'x');
    packet[0] = static_cast<uint8_t>(code);
    packet[1] = identifier;
    packet[2] = static_cast<uint8_t>(size >> 8);
    packet[3] = static_cast<uint8_t>(size & 0xff);
    packet[4] = type;
    return packet;
}

Bytes identityResponse(const std::string &identity) {
    Bytes packet =
        eapPacket(EapCode::kResponse, 1, kEapTypeIdentity, kEapHeaderSize + 1 + identity.size());
    std::copy(identity.begin(), identity.end(),
              packet.end() - static_cast<ptrdiff_t>(identity.size()));
    return packet;
}

// A server that answers each request with a challenge.
class Server {
  public:
    Server() : socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket") {
        sockaddr_in place = {};
        place.sin_family = AF_INET;
        place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof place;
        auto *generic = reinterpret_cast<sockaddr *>(&place);
        if (bind(socket_.get(), generic, size) != 0 ||
            getsockname(socket_.get(), generic, &size) != 0) {
            throw std::system_error(errno, std::generic_category(), "server");
        }
        port_ = ntohs(place.sin_port);
        wantKernelTime(socket_.get());
    }

    uint16_t port() const { return port_; }

    // Waits for a request. @return when it came; nothing when none does.
    std::optional<Moment> receive() {
        pollfd watched = {socket_.get(), POLLIN, 0};
        if (poll(&watched, 1, static_cast<int>(kPatience.count())) != 1) {
            return std::nullopt;
        }
        request_.resize(4096);
        std::array<char, 128> control = {};
        iovec part = {request_.data(), request_.size()};
        msghdr message = {};
        message.msg_name = &client_;
        message.msg_namelen = sizeof client_;
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        const ssize_t size = recvmsg(socket_.get(), &message, 0);
        if (size < 0) {
            throw std::system_error(errno, std::generic_category(), "server");
        }
        request_.resize(static_cast<size_t>(size));
        return kernelTime(message);
    }

    bool requestHasState() const {
        return !test::attributeValues(request_, kStateAttribute).empty();
    }

    // Sends a challenge with an EAP packet of that size. @return when.
    Moment challenge(size_t size) {
        Attributes attributes;
        const Bytes packet = eapPacket(EapCode::kRequest, 2, 4, size);
        for (size_t at = 0; at < packet.size(); at += kAttributeMax) {
            attributes.add(
                kEapMessageAttribute,
                test::ByteView(packet).subspan(at, std::min(kAttributeMax, packet.size() - at)));
        }
        attributes.addMessageAuthenticator().add(kStateAttribute, Bytes(kStateSize, 's'));
        const Bytes reply = test::makeReply(kChallenge, request_, kSecret, attributes);
        const Moment sent = now();
        if (sendto(socket_.get(), reply.data(), reply.size(), 0,
                   reinterpret_cast<const sockaddr *>(&client_), sizeof client_) < 0) {
            throw std::system_error(errno, std::generic_category(), "server");
        }
        return sent;
    }

  private:
    FileDescriptor socket_;
    uint16_t port_ = 0;
    Bytes request_ = {};
    sockaddr_in client_ = {};
};

// An authenticator on the bus.
class Authenticator {
  public:
    Authenticator() : bus_([this](pnac::ByteView record) { take(record); }) {}

    // Hands a packet to the relay. @return when.
    Moment send(uint32_t cookie, const Bytes &eap) {
        const pnac::Bytes record = pnac::buildRecord(cookie, eap);
        const Moment sent = now();
        if (bus_.send(record) != pnac::HandOver::kTaken) {
            throw std::runtime_error("the relay takes nothing");
        }
        return sent;
    }

    struct Answer {
        Moment at{};
        EapCode code = EapCode::kFailure;
    };
    // Waits for the relay's answer; nothing when none comes.
    std::optional<Answer> receive() {
        answer_.reset();
        const Moment end = now() + kPatience;
        while (!answer_ && now() < end) {
            bus_.listen(kPatience);
        }
        return answer_;
    }

  private:
    void take(pnac::ByteView bytes) {
        const Moment at = now();
        const auto record = pnac::parseRecord(bytes);
        if (!record) {
            throw std::runtime_error("a record that does not hold together");
        }
        answer_ = {.at = at, .code = record->eap.code};
    }

    std::optional<Answer> answer_;
    pnac::Bus bus_;
};

// A relay between the two.
class Stage {
  public:
    // @param program  the relay; radeapd when there is none.
    explicit Stage(const char *program) {
        palRootSet(device_.root().c_str());
        device_.addServer("127.0.0.1", server_.port(), kSecret);
        if (program != nullptr) {
            device_.startRelay(program);
        } else {
            device_.startRelay();
        }
        device_.db({"replay"});
        authenticator_.emplace();
    }
    ~Stage() { palRootSet(nullptr); }
    Stage(const Stage &) = delete;
    Stage &operator=(const Stage &) = delete;
    Stage(Stage &&) = delete;
    Stage &operator=(Stage &&) = delete;

    struct Round {
        Moment in{};   // from the bus to the server
        Moment out{};  // from the server to the bus
        bool hadState = false;
    };
    // Nothing when the relay does not carry both through.
    std::optional<Round> round(uint32_t cookie, const Bytes &response, size_t challengeSize) {
        const Moment sent = authenticator_->send(cookie, response);
        const auto arrived = server_.receive();
        if (!arrived) {
            return std::nullopt;
        }
        const Moment answered = server_.challenge(challengeSize);
        const auto answer = authenticator_->receive();
        if (!answer || answer->code != EapCode::kRequest) {
            return std::nullopt;
        }
        return Round{.in = *arrived - sent,
                     .out = answer->at - answered,
                     .hadState = server_.requestHasState()};
    }

  private:
    test::Device device_;
    Server server_;
    std::optional<Authenticator> authenticator_;
};

double medianMicroseconds(std::vector<Moment> times) {
    const auto middle = times.begin() + static_cast<ptrdiff_t>(times.size() / 2);
    std::nth_element(times.begin(), middle, times.end());
    return middle->count() * 1e6;
}

void measureRounds(Stage &stage, uint32_t cookie, size_t size) {
    constexpr int kWarmUp = 100;
    constexpr int kRounds = 1000;

    std::vector<Moment> in;
    std::vector<Moment> out;
    stage.round(cookie, identityResponse("alice"), size);
    const Bytes response = eapPacket(EapCode::kResponse, 2, 4, size);
    for (int i = 0; i < kWarmUp + kRounds; ++i) {
        const auto round = stage.round(cookie, response, size);
        if (!round || !round->hadState) {
            throw std::runtime_error("a round is not carried through");
        }
        if (i >= kWarmUp) {
            in.push_back(round->in);
            out.push_back(round->out);
        }
    }
    std::printf("round eap-octets=%zu n=%d in-us=%.0f out-us=%.0f\n", size, kRounds,
                medianMicroseconds(in), medianMicroseconds(out));
}

// Opens conversations up to a number, each with a challenge. @return how many were opened.
uint32_t openConversations(Stage &stage, uint32_t number) {
    uint32_t opened = 0;
    while (opened < number && stage.round(opened + 1, identityResponse("alice"), kSmall)) {
        ++opened;
    }
    return opened;
}

// @return how many conversations a new relay takes, up to a number.
uint32_t take(uint32_t number) {
    Stage stage(LANYARD_SMALL_RELAY);
    return openConversations(stage, number);
}

// @return how many of so many conversations of a new relay go on, each with its State.
uint32_t goOn(uint32_t number) {
    Stage stage(LANYARD_SMALL_RELAY);
    const Bytes response = eapPacket(EapCode::kResponse, 2, 4, kSmall);
    uint32_t gone = 0;
    for (bool goes = openConversations(stage, number) == number; goes && gone < number;) {
        const auto round = stage.round(gone + 1, response, kSmall);
        goes = round && round->hadState;
        gone += goes ? 1 : 0;
    }
    return gone;
}

}  // namespace

void measureRounds() {
    Stage stage(nullptr);
    measureRounds(stage, 1, kSmall);
    measureRounds(stage, 2, kLarge);
}

void measureCapacity() {
    constexpr uint32_t kTooMany = 2000;
    uint32_t held = take(kTooMany);
    // One that was too many has taken room from the others: so many that all of them can go on.
    while (held > 0 && goOn(held) < held) {
        --held;
    }
    std::printf(
        "capacity partition-octets=102400 identity-octets=5 state-octets=%zu conversations=%u\n",
        kStateSize, held);
}

}  // namespace lanyard::bench
