// responder [--port N] [--secret TEXT] [--threads N] [--seconds N]: answers every Access-Request on
// 127.0.0.1 at once with a right Access-Accept, whatever it asks, and prints "port=N" when it does.
// It ends with the program that has started it, or when its time is over.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <arpa/inet.h>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <lanyard/radius/engine.h>

#include "bench/guarded_main.h"
#include "bench/shared_secret.h"
#include "tools/file_descriptor.h"

namespace lanyard::bench {

namespace {

constexpr size_t kAuthenticatorAt = 4;
constexpr size_t kSignatureAt = RAD_HEADER_SIZE + 2;

// Message-Authenticator, and what the server of the interoperability tests grants alice.
std::vector<uint8_t> makeReply() {
    std::vector<uint8_t> reply(RAD_HEADER_SIZE);
    const auto add = [&reply](uint8_t type, std::string_view value) {
        reply.push_back(type);
        reply.push_back(static_cast<uint8_t>(value.size() + 2));
        reply.insert(reply.end(), value.begin(), value.end());
    };
    add(RAD_ATTR_MESSAGE_AUTHENTICATOR, std::string(sizeof(Digest), '\0'));
    add(RAD_ATTR_REPLY_MESSAGE, "Welcome, alice");
    add(RAD_ATTR_SESSION_TIMEOUT, {"\0\0\x1c\x21", 4});
    add(RAD_ATTR_IDLE_TIMEOUT, {"\0\0\x02\x58", 4});
    reply[0] = RAD_CODE_ACCESS_ACCEPT;
    reply[3] = static_cast<uint8_t>(reply.size());
    return reply;
}

// A socket of its own for each thread, between which the kernel divides the clients.
FileDescriptor openSocket(uint16_t &port) {
    FileDescriptor opened(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket");
    const int yes = 1;
    const int room = 1 << 20;
    checked(setsockopt(opened.get(), SOL_SOCKET, SO_REUSEPORT, &yes, sizeof yes), "SO_REUSEPORT");
    checked(setsockopt(opened.get(), SOL_SOCKET, SO_RCVBUF, &room, sizeof room), "SO_RCVBUF");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto *const shape = reinterpret_cast<sockaddr *>(&address);
    checked(bind(opened.get(), shape, size), "bind");
    checked(getsockname(opened.get(), shape, &size), "getsockname");
    port = ntohs(address.sin_port);
    return opened;
}

[[noreturn]] void answerAll(int socket, const SharedSecret &secret) {
    const auto fresh = makeReply();
    auto reply = fresh;
    std::array<uint8_t, RAD_PACKET_MAX> request{};
    for (;;) {
        sockaddr_in client{};
        socklen_t size = sizeof client;
        const ssize_t length = recvfrom(socket, request.data(), request.size(), 0,
                                        reinterpret_cast<sockaddr *>(&client), &size);
        if (length < RAD_HEADER_SIZE || request[0] != RAD_CODE_ACCESS_REQUEST) {
            continue;
        }
        std::copy(fresh.begin(), fresh.end(), reply.begin());
        reply[1] = request[1];
        std::copy_n(request.begin() + kAuthenticatorAt, sizeof(Digest),
                    reply.begin() + kAuthenticatorAt);
        const Digest signature = secret.sign({reply});
        std::copy(signature.begin(), signature.end(), reply.begin() + kSignatureAt);
        const Digest seal = secret.seal({reply});
        std::copy(seal.begin(), seal.end(), reply.begin() + kAuthenticatorAt);
        (void)sendto(socket, reply.data(), reply.size(), 0, reinterpret_cast<sockaddr *>(&client),
                     size);
    }
}

int run(int argc, char *argv[]) {
    uint16_t port = 0;
    std::string text = "testing123";
    size_t threads = 1;
    unsigned seconds = 600;
    CLI::App app("Accepts everybody.", "responder");
    app.add_option("--port", port, "to listen on; 0: a free one")->capture_default_str();
    app.add_option("--secret", text, "shared with the clients")->capture_default_str();
    app.add_option("--threads", threads, "that answer")
        ->check(CLI::Range(1, 64))
        ->capture_default_str();
    app.add_option("--seconds", seconds, "after which it ends")
        ->check(CLI::Range(1, 86400))
        ->capture_default_str();
    CLI11_PARSE(app, argc, argv);
    checked(prctl(PR_SET_PDEATHSIG, SIGTERM), "prctl");
    alarm(seconds);

    const SharedSecret secret(text);
    std::vector<FileDescriptor> sockets;
    for (size_t i = 0; i < threads; ++i) {
        sockets.push_back(openSocket(port));
    }
    std::printf("port=%u\n", static_cast<unsigned>(port));
    (void)std::fflush(stdout);
    for (size_t i = 1; i < threads; ++i) {
        std::thread(answerAll, sockets[i].get(), std::cref(secret)).detach();
    }
    answerAll(sockets[0].get(), secret);
}

}  // namespace

}  // namespace lanyard::bench

int main(int argc, char *argv[]) {
    return lanyard::bench::guardedMain(lanyard::bench::run, argc, argv);
}
