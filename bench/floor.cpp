// floor HOST PORT SECRET COUNT [--threads N] [--reuse] [--in-flight N]: what an exchange costs without
// a RADIUS library. Sends a request that was made beforehand, with the system calls that a login of the
// library makes, and checks the authenticator of the reply: one digest. Prints the line of measure.h.
//
//     --reuse        one socket for all exchanges of a thread, not a fresh one for each
//     --in-flight N  so many at once on one connected socket
#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>

#include <lanyard/radius/engine.h>

#include "bench/measure.h"
#include "bench/shared_secret.h"
#include "tools/file_descriptor.h"

namespace lanyard::bench {

namespace {

constexpr size_t kAuthenticatorSize = 16;
constexpr size_t kMaxInFlight = 256;  // an identifier each

// As a login with PAP sends it, but for the digests: User-Name, User-Password, Service-Type,
// NAS-IP-Address, Message-Authenticator.
constexpr std::array<uint8_t, 75> kRequest = {RAD_CODE_ACCESS_REQUEST,
                                              0,
                                              0,
                                              75,
                                              1,
                                              2,
                                              3,
                                              4,
                                              5,
                                              6,
                                              7,
                                              8,
                                              9,
                                              10,
                                              11,
                                              12,
                                              13,
                                              14,
                                              15,
                                              16,
                                              RAD_ATTR_USER_NAME,
                                              7,
                                              'a',
                                              'l',
                                              'i',
                                              'c',
                                              'e',
                                              RAD_ATTR_USER_PASSWORD,
                                              18,
                                              1,
                                              2,
                                              3,
                                              4,
                                              5,
                                              6,
                                              7,
                                              8,
                                              9,
                                              10,
                                              11,
                                              12,
                                              13,
                                              14,
                                              15,
                                              16,
                                              RAD_ATTR_SERVICE_TYPE,
                                              6,
                                              0,
                                              0,
                                              0,
                                              8,
                                              RAD_ATTR_NAS_IP_ADDRESS,
                                              6,
                                              127,
                                              0,
                                              0,
                                              1,
                                              RAD_ATTR_MESSAGE_AUTHENTICATOR,
                                              18};

class Client {
  public:
    explicit Client(const Settings &settings) : secret_(settings.secret) {
        server_.sin_family = AF_INET;
        server_.sin_port = htons(settings.port);
        if (inet_pton(AF_INET, settings.host.c_str(), &server_.sin_addr) != 1) {
            throw std::runtime_error("HOST is no dotted address");
        }
    }

    static FileDescriptor bound() {
        FileDescriptor opened(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket");
        sockaddr_in local{};
        local.sin_family = AF_INET;
        socklen_t size = sizeof local;
        auto *const address = reinterpret_cast<sockaddr *>(&local);
        checked(bind(opened.get(), address, size), "bind");
        checked(getsockname(opened.get(), address, &size), "getsockname");
        return opened;
    }

    [[nodiscard]] FileDescriptor connected() const {
        FileDescriptor opened(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0),
                              "socket");
        // The usual room holds 277 small datagrams at most, and fewer when the kernel is behind.
        const int room = 1 << 20;
        checked(setsockopt(opened.get(), SOL_SOCKET, SO_RCVBUF, &room, sizeof room), "SO_RCVBUF");
        checked(connect(opened.get(), server(), sizeof server_), "connect");
        return opened;
    }

    void exchange(int socket) {
        checked(sendto(socket, request_.data(), request_.size(), 0, server(), sizeof server_),
                "sendto");
        await(socket);
        receive(socket, RAD_HEADER_SIZE, MSG_PEEK);
        check(receive(socket, reply_.size(), 0));
        ++request_[1];
    }

    void exchangeInFlight(size_t count, size_t inFlight, Laps &laps) {
        const FileDescriptor socket = connected();
        size_t sent = 0;
        size_t received = 0;
        for (; sent < std::min(inFlight, count); ++sent) {
            send(socket.get(), static_cast<uint8_t>(sent));
        }
        while (received < count) {
            await(socket.get());
            for (ssize_t size = 0; (size = recv(socket.get(), reply_.data(), reply_.size(), 0)) > 0;
                 ++received) {
                request_[1] = reply_[1];
                check(static_cast<size_t>(size));
                laps.add(started_[reply_[1]]);
                if (sent < count) {
                    send(socket.get(), reply_[1]);
                    ++sent;
                }
            }
            checked(errno == EAGAIN ? 0 : -1, "recv");
        }
    }

  private:
    static int checked(ssize_t result, const char *call) {
        return result < 0 ? lanyard::checked(-1, call) : static_cast<int>(result);
    }

    static void await(int socket) {
        pollfd waited{.fd = socket, .events = POLLIN, .revents = 0};
        const timespec timeout{.tv_sec = kTimeoutSeconds, .tv_nsec = 0};
        if (checked(ppoll(&waited, 1, &timeout, nullptr), "ppoll") == 0) {
            throw std::runtime_error("no reply");
        }
    }

    [[nodiscard]] const sockaddr *server() const {
        return reinterpret_cast<const sockaddr *>(&server_);
    }

    size_t receive(int socket, size_t size, int flags) {
        sockaddr_in source{};
        socklen_t sourceSize = sizeof source;
        return static_cast<size_t>(
            checked(recvfrom(socket, reply_.data(), size, flags,
                             reinterpret_cast<sockaddr *>(&source), &sourceSize),
                    "recvfrom"));
    }

    void send(int socket, uint8_t identifier) {
        started_[identifier] = Clock::now();
        request_[1] = identifier;
        checked(::send(socket, request_.data(), request_.size(), 0), "send");
    }

    void check(size_t size) const {
        const Bytes reply = Bytes(reply_).first(size);
        if (size < RAD_HEADER_SIZE || reply[1] != request_[1]) {
            throw std::runtime_error("the reply is to another request");
        }
        const Digest expected =
            secret_.seal({reply.first(4), Bytes(request_).subspan(4, kAuthenticatorSize),
                          reply.subspan(RAD_HEADER_SIZE)});
        if (!std::equal(expected.begin(), expected.end(), reply.begin() + 4)) {
            throw std::runtime_error("the reply is not authentic");
        }
    }

    SharedSecret secret_;
    sockaddr_in server_{};
    std::array<uint8_t, kRequest.size()> request_ = kRequest;
    std::array<uint8_t, RAD_PACKET_MAX> reply_{};
    std::array<Clock::time_point, kMaxInFlight> started_{};
};

struct Form {
    bool reuse = false;
    size_t inFlight = 0;
};

void work(const Settings &settings, const Form &form, Laps &laps) {
    Client client(settings);
    if (form.inFlight > 0) {
        client.exchangeInFlight(settings.count, form.inFlight, laps);
    } else if (form.reuse) {
        const FileDescriptor socket = Client::bound();
        repeat(settings, laps, [&] { client.exchange(socket.get()); });
    } else {
        repeat(settings, laps, [&] { client.exchange(Client::bound().get()); });
    }
}

}  // namespace

}  // namespace lanyard::bench

int main(int argc, char *argv[]) {
    using namespace lanyard::bench;
    CLI::App app("What an exchange costs without a RADIUS library.", "floor");
    Settings settings;
    Form form;
    settings.addTo(app);
    app.add_flag("--reuse", form.reuse, "one socket for all exchanges of a thread");
    app.add_option("--in-flight", form.inFlight, "so many at once on one connected socket")
        ->check(CLI::Range(size_t{1}, kMaxInFlight));
    return measure(
        app, argc, argv, settings, [] {}, [&](Laps &laps) { work(settings, form, laps); });
}
