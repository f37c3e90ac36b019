#include "configuration.h"

#include <algorithm>
#include <cstdlib>

#include <lanyard/radius/dict.h>
#include <lanyard/radius/frame.h>

#include "failure.h"

namespace lanyardctl {

Library::Library() {
    setenv("PAL_DEBUG_LEVELS", "0", 0);
}

Library::~Library() {
    radLibExit();
}

Configuration::Configuration(const std::string &file) {
    if (radLibInit(file.c_str()) != 0) {
        throw Failure("the configuration file " + file + " is refused; 'lanyardctl check " + file +
                      "' says why");
    }
}

std::vector<RadServer> Configuration::servers(int kind) {
    const auto *slots = static_cast<const RadServer *>(
        radConfGet(kind == RAD_SERVER_AUTH ? RAD_CONF_AUTH_SERVERS : RAD_CONF_ACCT_SERVERS));
    const auto *timeout = static_cast<const int32_t *>(radConfGet(RAD_CONF_TIMEOUT));
    const auto *retries = static_cast<const int32_t *>(radConfGet(RAD_CONF_RETRIES));
    std::vector<RadServer> servers;
    for (int slot = 0; slots && slot < RAD_SERVERS_MAX; ++slot) {
        if (slots[slot].host) {
            RadServer &server = servers.emplace_back(slots[slot]);
            server.timeout = server.timeout < 0 && timeout ? *timeout : server.timeout;
            server.retries = server.retries < 0 && retries ? *retries : server.retries;
        }
    }
    return servers;
}

Dictionary::Dictionary(const std::optional<std::string> &file) {
    radLibInit(nullptr);
    if (radDictLoad(file ? file->c_str() : nullptr) != 0) {
        throw Failure(file ? "the dictionary " + *file +
                                 " cannot be loaded; 'lanyardctl dict check " + *file + "' says why"
                           : "the built-in dictionary cannot be loaded");
    }
}

}  // namespace lanyardctl
