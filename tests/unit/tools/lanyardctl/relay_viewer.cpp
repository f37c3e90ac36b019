#include "tests/unit/tools/lanyardctl/relay_viewer.h"

#include <array>
#include <sstream>
#include <stdexcept>
#include <string>

#include <lanyard/radius/eap.h>

#include "tests/unit/tools/lanyardctl/relay_process.h"
#include "tools/lanyardctl/service.h"

namespace lanyard::test {

RelayViewer::RelayViewer() {
    constexpr uint32_t kModule = 30;
    const XbusHandler refuse = [](void *, void *, uint32_t, void *, uint32_t, void *, uint32_t *) {
        return -1;
    };
    if (xbusInit() != 0 ||
        !(context_ = xbusRegister(kModule, XBUS_MODE_HANDLER, refuse, nullptr))) {
        throw std::runtime_error("no bus");
    }
}

RelayViewer::~RelayViewer() {
    xbusUnRegister(context_);
}

void RelayViewer::haveWait() {
    if (xbusIoctl(context_, RAD_EAP_MODULE, kWait, nullptr, 0, nullptr, nullptr, XBUS_NO_WAIT, 0,
                  0) != 0) {
        throw std::runtime_error("no relay");
    }
}

std::optional<RelayServers> RelayViewer::look() {
    std::array<char, 8192> answer{};
    auto length = static_cast<uint32_t>(answer.size());
    if (xbusIoctl(context_, RAD_EAP_MODULE, kTellServers, nullptr, 0, answer.data(), &length, 0, 0,
                  0) != 0) {
        return std::nullopt;
    }
    std::istringstream lines(std::string(answer.data(), length));
    RelayServers held;
    lines >> held.process >> held.messages >> held.count >> held.waitsBeforeNotice;
    int rowKey = 0;
    lanyardctl::Server server{.host = "", .port = "", .secret = "", .timeout = "", .retries = ""};
    while (lines >> rowKey >> server.id >> *server.host >> *server.port >> *server.timeout >>
           *server.retries >> *server.secret) {
        held.servers.push_back(server);
        if (rowKey != lanyardctl::kRowKey) {
            held.servers.back().id = -1;
        }
    }
    return held;
}

}  // namespace lanyard::test
