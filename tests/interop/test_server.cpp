// lanyard-test-server [--eap]: the server of real_server.h for scripts and for trying things by
// hand, with --eap one that serves EAP as well.
//
// It prints where the server is, one "name=value" a line, and keeps it running until its standard
// input ends or it is asked to stop (SIGINT, SIGTERM, SIGHUP).
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <poll.h>
#include <string_view>
#include <sys/signalfd.h>
#include <system_error>
#include <unistd.h>

#include "tests/interop/real_server.h"

namespace {

using lanyard::test::RealServer;

void waitForEnd(int signals) {
    std::array<pollfd, 2> watched = {{{STDIN_FILENO, POLLIN, 0}, {signals, POLLIN, 0}}};
    for (;;) {
        if (poll(watched.data(), watched.size(), -1) < 0) {
            throw std::system_error(errno, std::generic_category(), "poll");
        }
        if (watched[1].revents != 0) {
            return;
        }
        std::array<char, 256> input;
        if (watched[0].revents != 0 && read(STDIN_FILENO, input.data(), input.size()) <= 0) {
            return;
        }
    }
}

void printEap(const RealServer &server) {
    std::printf("eap_port=%u\n", unsigned{server.eapPort()});
    std::printf("ca_certificate=%s\n", server.certificate("ca.pem").c_str());
    std::printf("client_certificate=%s\n", server.certificate("client.pem").c_str());
    std::printf("client_key=%s\n", server.certificate("client.key").c_str());
}

}  // namespace

int main(int argc, char *argv[]) {
    const bool eap = argc == 2 && std::string_view(argv[1]) == "--eap";
    if (argc > 1 && !eap) {
        (void)std::fprintf(stderr, "Usage: lanyard-test-server [--eap]\n");
        return EXIT_FAILURE;
    }
    try {
        sigset_t ends;
        sigemptyset(&ends);
        for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
            sigaddset(&ends, number);
        }
        sigprocmask(SIG_BLOCK, &ends, nullptr);
        const int signals = signalfd(-1, &ends, SFD_CLOEXEC);
        if (signals < 0) {
            throw std::system_error(errno, std::generic_category(), "signalfd");
        }
        const RealServer server(eap ? RealServer::Eap::kYes : RealServer::Eap::kNo);
        std::printf("auth_port=%u\nsigned_port=%u\nacct_port=%u\nsecret=%s\nfolder=%s\n",
                    unsigned{server.authPort()}, unsigned{server.signedPort()},
                    unsigned{server.acctPort()}, server.secret().c_str(), server.folder().c_str());
        if (eap) {
            printEap(server);
        }
        (void)std::puts("ready=yes");
        (void)std::fflush(stdout);
        waitForEnd(signals);
        return EXIT_SUCCESS;
    } catch (const std::exception &reason) {
        (void)std::fprintf(stderr, "lanyard-test-server: %s\n", reason.what());
        return EXIT_FAILURE;
    }
}
