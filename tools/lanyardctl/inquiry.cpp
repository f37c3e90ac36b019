#include "inquiry.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <netinet/in.h>
#include <optional>
#include <poll.h>
#include <sys/socket.h>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/engine.h>

#include "radius_packet.h"
#include "tools/file_descriptor.h"

namespace lanyardctl {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr const char *kUser = "lanyardctl";
constexpr size_t kValueMax = 253;
constexpr const char *kPassword = "no-such-password";

double since(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

State stateOf(int error) {
    return error == ECONNREFUSED ? State::kClosed : State::kUnreachable;
}

// One question to one server. The socket is connected, so the network can say that nobody is there.
class Asking {
  public:
    Asking(const sockaddr_in &server, const Bytes &request, const std::string &secret,
           Finding &finding)
        : request_(request),
          secret_(secret),
          finding_(finding),
          socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket") {
        if (connect(socket_.get(), reinterpret_cast<const sockaddr *>(&server), sizeof(server)) !=
            0) {
            fail();
        }
    }

    void ask(milliseconds wait) {
        constexpr int kSends = 2;
        start_ = Clock::now();
        for (int sends = 0; sends < kSends && finding_.state == State::kSilent; ++sends) {
            if (send(socket_.get(), request_.data(), request_.size(), 0) < 0) {
                return fail();
            }
            waitUntil(Clock::now() + wait / kSends);
        }
    }

  private:
    void fail() {
        finding_.error = errno;
        finding_.state = stateOf(errno);
    }

    void waitUntil(Clock::time_point end) {
        while (finding_.state == State::kSilent && Clock::now() < end) {
            const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
            pollfd waited{socket_.get(), POLLIN, 0};
            if (poll(&waited, 1, static_cast<int>(left.count())) > 0) {
                receive();
            }
        }
    }

    void receive() {
        std::array<uint8_t, RAD_PACKET_MAX> buffer{};
        const ssize_t size = recv(socket_.get(), buffer.data(), buffer.size(), 0);
        if (size < 0) {
            return fail();
        }
        try {
            take(PacketView(View(buffer).first(static_cast<size_t>(size))));
        } catch (const Malformed &) {
            // It answers nothing; the wait goes on.
        }
    }

    void take(const PacketView &reply) {
        const PacketView request(request_);
        if (reply.identifier() != request.identifier()) {
            return;
        }
        const Proof message = messageProof(reply, request.authenticator(), secret_);
        const bool isRight =
            responseProof(reply, request.authenticator(), secret_) == Proof::kRight &&
            message != Proof::kWrong;
        finding_.state = isRight ? State::kAnswers : State::kWrongSecret;
        finding_.milliseconds = since(start_);
        finding_.code = reply.code();
        finding_.isSigned = isRight && message == Proof::kRight;
    }

    const Bytes &request_;
    const std::string &secret_;
    Finding &finding_;
    lanyard::FileDescriptor socket_;
    Clock::time_point start_;
};

PacketMaker statusRequest(const std::string &nas, const std::string &secret) {
    PacketMaker request(RAD_CODE_STATUS_SERVER);
    request.add(RAD_ATTR_NAS_IDENTIFIER, nas).sign(secret);
    return request;
}

PacketMaker loginRequest(const std::string &nas, const std::string &secret) {
    PacketMaker request(RAD_CODE_ACCESS_REQUEST);
    request.add(RAD_ATTR_USER_NAME, std::string_view(kUser))
        .addPassword(kPassword, secret)
        .add(RAD_ATTR_NAS_IDENTIFIER, nas);
    return request;
}

// The address of a server; none when its name has none.
std::optional<sockaddr_in> addressOf(const RadServer &server) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(server.port);
    address.sin_addr.s_addr = radGetIPByName(server.host);
    const bool isKnown = address.sin_addr.s_addr != 0 && address.sin_addr.s_addr != INADDR_NONE;
    return isKnown ? std::optional(address) : std::nullopt;
}

}  // namespace

Finding inquire(const RadServer &server, int kind, milliseconds wait) {
    Finding finding;
    const auto address = addressOf(server);
    if (!address) {
        finding.state = State::kUnresolved;
        return finding;
    }
    std::array<char, INET_ADDRSTRLEN> text{};
    inet_ntop(AF_INET, &address->sin_addr, text.data(), text.size());
    finding.address = text.data();

    const std::string secret = server.secret ? server.secret : "";
    // No attribute has room for a longer one.
    const std::string nas = std::string(server.extra ? server.extra : kUser).substr(0, kValueMax);
    const auto ask = [&](const char *question, const PacketMaker &request) {
        if (finding.state == State::kSilent) {
            Asking(*address, request.bytes(), secret, finding).ask(wait);
            finding.question = finding.code != 0 ? question : "";
        }
    };
    ask("Status-Server", statusRequest(nas, secret));
    finding.statusServer = finding.state == State::kAnswers;
    if (kind == RAD_SERVER_AUTH) {
        ask("Access-Request", loginRequest(nas, secret).sign(secret));
        const bool wasSilent = finding.state == State::kSilent;
        ask("Access-Request without Message-Authenticator", loginRequest(nas, secret));
        if (wasSilent && finding.state == State::kAnswers) {
            finding.state = State::kUnsigned;
        }
    }
    return finding;
}

std::string wordsFor(const Finding &finding) {
    switch (finding.state) {
        case State::kAnswers:
            return "answers";
        case State::kUnsigned:
            return "answers only what is not signed";
        case State::kWrongSecret:
            return "wrong secret";
        case State::kClosed:
            return "port closed";
        case State::kUnreachable:
            return std::string("unreachable: ") + std::strerror(finding.error);
        case State::kUnresolved:
            return "name not found";
        default:
            return "silent";
    }
}

std::string nextStepFor(const Finding &finding, const RadServer &server) {
    const std::string port = std::to_string(server.port);
    switch (finding.state) {
        case State::kAnswers:
            return "";
        case State::kUnsigned:
            return "the server drops requests with a Message-Authenticator, which the library "
                   "always "
                   "sends: look into the server's log";
        case State::kWrongSecret:
            return "something answers at " + finding.address + ":" + port +
                   ", and its answer does not fit the shared secret: set the same secret here and "
                   "in "
                   "the server's entry for this device";
        case State::kClosed:
            return "the machine is there, and nobody listens on UDP port " + port +
                   ": start the RADIUS service, or put its port into the configuration (1812 and "
                   "1813, on old servers 1645 and 1646)";
        case State::kUnreachable:
            return "the packet does not leave this machine: see 'ip route get " + finding.address +
                   "', the cable and the local packet filter";
        case State::kUnresolved:
            return std::string("neither the resolver nor /var/hosts knows '") + server.host +
                   "': see 'getent hosts " + server.host + "', or put the address into the file";
        default:
            return "nothing came back: is the server up, is this device one of its clients, and "
                   "does no "
                   "packet filter drop UDP port " +
                   port +
                   "? A server that has another secret for this device can be silent as well: its "
                   "log "
                   "tells";
    }
}

std::string nameOf(const RadServer &server) {
    return std::string(server.host) + ":" + std::to_string(server.port);
}

std::string asMilliseconds(double milliseconds) {
    std::array<char, 32> text{};
    (void)std::snprintf(text.data(), text.size(), "%.1f ms", milliseconds);
    return text.data();
}

double inMicrosecondSteps(double milliseconds) {
    constexpr double kSteps = 1000;
    return std::round(milliseconds * kSteps) / kSteps;
}

}  // namespace lanyardctl
