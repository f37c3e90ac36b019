// The relay as a service: command line, start-up, main loop, shutdown.
#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <unistd.h>

#include <lanyard/radius/eap.h>
#include <lanyard/radius/frame.h>
#include <lanyard/radius/mgmt.h>
#include <palcore.h>
#include <xbus.h>

#include "base/log.h"
#include "base/text.h"
#include "relay/in_flight.h"

namespace lanyard {
namespace {

constexpr const char *kTaskName = "tRadEap";
constexpr uint32_t kListenMicroseconds = 100000;
constexpr int kPollMilliseconds = 100;
constexpr int kPollsMax = 100;

// Cleared by the SIGTERM handler.
std::atomic<uint32_t> running{0};
static_assert(std::atomic<uint32_t>::is_always_lock_free);

void becomeDaemon(void * /*context*/) {
    [[maybe_unused]] const int detached = daemon(0, 0);  // stays in the foreground where it cannot
}

RadEapDetachHook detach = becomeDaemon;
void *detachContext = nullptr;

// What the command line sets; nothing reads it.
uint32_t verbose = 0;

void nameDaemon() {
    constexpr size_t kNameLimit = 9;
    static_assert(kNameLimit <= sizeof(palDaemonOpt.taskName));
    std::strncpy(palDaemonOpt.taskName, kTaskName, kNameLimit);
    palDaemonOpt.setting1 = 100;
    palDaemonOpt.setting2 = 8;
    palDaemonOpt.setting3 = 10000;
}

// Reads the options. False when the program may not go on; it has said why.
bool parseOptions(int argc, char *argv[]) {
    const char *value = nullptr;  // what the last -d left
    optind = 0;                   // from the start, also after another parser
    for (int option = getopt(argc, argv, "vfd:"); option != -1;
         option = getopt(argc, argv, "vfd:")) {
        switch (option) {
            case 'v':
                verbose = 1;
                break;
            case 'f':
                // -f takes no value of its own but that of the last -d, and the path leads nowhere:
                // the relay is configured by its database alone. Start scripts in the field carry
                // the option.
                if (!value) {
                    radDeviceLogAs("radEapMain", kLogError, "ERROR: option value not specified \n");
                    return false;
                }
                break;
            case 'd':
                value = optarg;
                if (radiusMgmtInit(value, "radEap") == -1) {
                    radDeviceLogAs("radEapMain", kLogError,
                                   "could not initialize MGMT framework \n");
                }
                break;
            default:
                // getopt() tells a -d without its value like an unknown option.
                if (option == '?' && optopt == 'd') {
                    radDeviceLogAs("radEapMain", kLogError, "ERROR: option value not specified \n");
                } else {
                    std::printf("Usage: %s [-v] [ -f confFile]\n", shownText(argv[0]));
                }
                return false;
        }
    }
    return true;
}

void serveOneByOne() {
    for (;;) {
        xbusListen(pRadEapXbusCtx, kListenMicroseconds);
        if (!running) {
            return;
        }
        radEapRecvTask();
        radEapCtxTimeout();
    }
}

}  // namespace
}  // namespace lanyard

using namespace lanyard;

int radEapMain(int argc, char *argv[]) {
    if (!parseOptions(argc, argv)) {
        return -1;
    }
    if (radLibInit(nullptr) == -1) {
        radDeviceLog(kLogError, "Unable to initialize radius \n");
        return -1;
    }
    return radEapInit() == -1 ? -1 : 0;
}

void radEapDetachInstall(RadEapDetachHook hook, void *context) {
    detach = hook ? hook : becomeDaemon;
    detachContext = context;
}

int radEapInit(void) {
    if (running) {
        return 0;
    }
    if (palListInit(&radEapMsgQueue) != 0) {
        radDeviceLog(kLogError, "failed to initialize EAP message queue \n");
        return -1;
    }
    if (radEapXbusInit() == -1) {
        return -1;
    }
    running = 1;
    nameDaemon();
    detach(detachContext);
    std::signal(SIGTERM, radEapExit);

    if (!serveInFlight(running)) {
        serveOneByOne();
    }
    radEapMsgQueueCleanUp();
    xbusUnRegister(pRadEapXbusCtx);
    pRadEapXbusCtx = nullptr;
    return 0;
}

void radEapExit(int /*signo*/) {
    running = 0;
    // Waits for other tasks of that name, but not for ever: a signal handler that hangs ends
    // nothing.
    int polls = 0;
    do {
        palTaskDelay(kPollMilliseconds);
    } while (palTaskNameToId(kTaskName) != -1 && ++polls < kPollsMax);
}

int radEapASRegister(void) {
    return 0;
}
