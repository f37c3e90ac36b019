/**
 * @file
 * radeapd: the EAP relay as a service.
 *
 * SIGTERM ends it within a second. The relay ends between two packets, but a packet may wait for
 * silent servers for minutes. So the signal is taken by a thread of its own, which hands it to the
 * relay and ends the process if the relay has not done so by then.
 */
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <pthread.h>
#include <unistd.h>

#include <lanyard/radius/eap.h>
#include <lanyard/radius/frame.h>
#include <palcore.h>

namespace {

// The library's own partition holds about two hundred conversations. A switch that starts anew has
// all its supplicants log in at once: this holds two thousand.
constexpr uint32_t kPartitionSize = 2U << 20U;

constexpr long kEndNanoseconds = 800'000'000;
constexpr long kSecond = 1'000'000'000;

sigset_t termSignal() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    return signals;
}

// Polls for as long as another task of the relay's name is there, which may be ten seconds.
void *handSignalOn(void * /*unused*/) {
    radEapExit(SIGTERM);
    return nullptr;
}

void *awaitEnd(void * /*unused*/) {
    const sigset_t term = termSignal();
    int signal = 0;
    sigwait(&term, &signal);
    timespec end{};
    clock_gettime(CLOCK_MONOTONIC, &end);
    end.tv_nsec += kEndNanoseconds;
    end.tv_sec += end.tv_nsec / kSecond;
    end.tv_nsec %= kSecond;
    pthread_t thread{};
    if (pthread_create(&thread, nullptr, handSignalOn, nullptr) != 0) {
        handSignalOn(nullptr);
    }
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr);
    _exit(EXIT_SUCCESS);
}

// Runs in the daemon, where fork() has left one thread. Without memory for a second one the relay's
// own handler has to do.
void startAwaitingEnd() {
    const sigset_t term = termSignal();
    pthread_sigmask(SIG_BLOCK, &term, nullptr);
    pthread_t thread{};
    if (pthread_create(&thread, nullptr, awaitEnd, nullptr) != 0) {
        pthread_sigmask(SIG_UNBLOCK, &term, nullptr);
    }
}

}  // namespace

int main(int argc, char *argv[]) {
    radiusPartIdInit(palMemPartCreate("radeapd", nullptr, kPartitionSize));
    pthread_atfork(nullptr, nullptr, startAwaitingEnd);
    return radEapMain(argc, argv) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
