// A relay for the tests: lanyardctl-test-relay DATABASE
//
// It says "ready" once it is on the bus and runs until SIGTERM.
#include "tests/unit/tools/lanyardctl/relay_process.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <string>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/eap.h>
#include <lanyard/radius/frame.h>
#include <lanyard/radius/mgmt.h>
#include <xbus.h>

namespace {

std::string servers() {
    std::string text = std::to_string(radConfGetNumServers(RAD_SERVER_AUTH)) + "\n";
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
    return cmd == RAD_EAP_CMD_DB_UPDATE
               ? radiusMgmtDBUpdateHandler(buf, len, static_cast<char *>(out), outLen ? *outLen : 0)
               : -1;
}

volatile std::sig_atomic_t ended = 0;

void end(int /*signal*/) {
    ended = 1;
}

}  // namespace

int main(int argc, char **argv) {
    constexpr uint32_t kListenMicroseconds = 20000;

    if (argc != 2 || radiusMgmtInit(argv[1], "radEap") != 0 || radLibInit(nullptr) != 0) {
        return 1;
    }
    (void)std::signal(SIGTERM, end);
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
