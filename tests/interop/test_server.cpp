/**
 * @file
 * lanyard-test-server: the server of real_server.h for scripts and for trying things by hand.
 *
 * It prints where the server is, one "name=value" a line, and keeps it running until its standard
 * input ends or it is asked to stop (SIGINT, SIGTERM, SIGHUP).
 */
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <poll.h>
#include <sys/signalfd.h>
#include <system_error>
#include <unistd.h>

#include "tests/interop/real_server.h"

namespace {

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

}  // namespace

int main() {
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
        const lanyard::test::RealServer server;
        std::printf("auth_port=%u\nsigned_port=%u\nacct_port=%u\nsecret=%s\nready=yes\n",
                    unsigned{server.authPort()}, unsigned{server.signedPort()},
                    unsigned{server.acctPort()}, server.secret().c_str());
        (void)std::fflush(stdout);
        waitForEnd(signals);
        return EXIT_SUCCESS;
    } catch (const std::exception &reason) {
        (void)std::fprintf(stderr, "lanyard-test-server: %s\n", reason.what());
        return EXIT_FAILURE;
    }
}
