// A relay for the tests: lanyardctl-test-relay [--once] DATABASE
//
// It says "ready" once it is on the bus. As an init program would, it starts the relay again whenever
// that has ended, until SIGTERM; with --once it is the relay alone.
#include "tests/unit/tools/lanyardctl/relay_process.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/eap.h>
#include <lanyard/radius/frame.h>
#include <lanyard/radius/mgmt.h>
#include <xbus.h>

namespace {

int messages = 0;
int waits = 0;
int waitsBeforeNotice = 0;

std::string servers() {
    std::string text = std::to_string(getpid()) + " " + std::to_string(messages) + " " +
                       std::to_string(radConfGetNumServers(RAD_SERVER_AUTH)) + " " +
                       std::to_string(waitsBeforeNotice) + "\n";
    const auto *slots = static_cast<const RadServer *>(radConfGet(RAD_CONF_AUTH_SERVERS));
    for (int i = 0; slots && i < RAD_SERVERS_MAX; ++i) {
        if (slots[i].host) {
            text += std::to_string(slots[i].rowKey) + " " + std::to_string(slots[i].rowId) + " " +
                    slots[i].host + " " + std::to_string(slots[i].port) + " " +
                    std::to_string(slots[i].timeout) + " " + std::to_string(slots[i].retries) +
                    " " + slots[i].secret + "\n";
        }
    }
    return text;
}

int handle(void * /*busArg1*/, void * /*busArg2*/, uint32_t cmd, void *buf, uint32_t len, void *out,
           uint32_t *outLen) {
    if (cmd == lanyard::test::kTellServers) {
        const std::string text = servers();
        if (!out || !outLen || text.size() > *outLen) {
            return -1;
        }
        std::copy(text.begin(), text.end(), static_cast<char *>(out));
        *outLen = static_cast<uint32_t>(text.size());
        return 0;
    }
    if (cmd == lanyard::test::kWait) {
        constexpr useconds_t kMoment = 100000;
        usleep(kMoment);
        ++waits;
        return 0;
    }
    ++messages;
    waitsBeforeNotice = waits;
    return cmd == RAD_EAP_CMD_DB_UPDATE
               ? radiusMgmtDBUpdateHandler(buf, len, static_cast<char *>(out), outLen ? *outLen : 0)
               : -1;
}

volatile std::sig_atomic_t ended = 0;
volatile pid_t relay = 0;

void end(int /*signal*/) {
    ended = 1;
    if (relay > 0) {
        kill(relay, SIGTERM);
    }
}

int run(const char *database) {
    constexpr uint32_t kListenMicroseconds = 20000;

    if (radiusMgmtInit(database, "radEap") != 0 || radLibInit(nullptr) != 0) {
        return 1;
    }
    XbusCtx *context = nullptr;
    if (xbusInit() != 0 ||
        !(context = xbusRegister(RAD_EAP_MODULE, XBUS_MODE_HANDLER, handle, nullptr))) {
        return 1;
    }
    if (std::puts("ready") < 0 || std::fflush(stdout) != 0) {
        return 1;
    }
    while (!ended) {
        xbusListen(context, kListenMicroseconds);
    }
    xbusUnRegister(context);
    radiusMgmtDeInit();
    radLibExit();
    return 0;
}

int supervise(const char *database) {
    while (!ended) {
        const pid_t parent = getpid();
        const pid_t child = fork();
        if (child == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            return getppid() == parent ? run(database) : 1;
        }
        relay = child;
        if (ended) {
            kill(child, SIGTERM);
        }
        while (waitpid(child, nullptr, 0) == -1 && errno == EINTR) {
        }
        relay = 0;
    }
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    struct sigaction action {};
    action.sa_handler = end;
    sigaction(SIGTERM, &action, nullptr);
    if (argc == 3 && std::strcmp(argv[1], "--once") == 0) {
        return run(argv[2]);
    }
    return argc == 2 ? supervise(argv[1]) : 1;
}
