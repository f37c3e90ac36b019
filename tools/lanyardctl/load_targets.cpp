#include "load_targets.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <deque>
#include <optional>
#include <utility>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/engine.h>

#include "configuration.h"
#include "failure.h"
#include "inquiry.h"
#include "secret.h"
#include "table.h"

namespace lanyardctl {

namespace {

// A server, by its address, with texts of its own.
struct Target {
    Target(std::string dotted, const RadServer &server)
        : address(std::move(dotted)),
          port(server.port),
          timeout(server.timeout),
          retries(server.retries),
          secret(server.secret),
          nasIdentifier(server.extra ? std::optional<std::string>(server.extra) : std::nullopt) {}

    std::string address;
    int port;
    int timeout;
    int retries;
    Secret secret;
    std::optional<std::string> nasIdentifier;
};

// Throws a Failure where it may not be reached.
std::string allowedAddressOf(const RadServer &server, const std::vector<std::string> &confirmed) {
    const in_addr address{radGetIPByName(server.host)};
    if (address.s_addr == 0 || address.s_addr == INADDR_NONE) {
        throw Failure("the name of the server " + shown(nameOf(server)) + " has no address");
    }
    std::array<char, INET_ADDRSTRLEN> text{};
    inet_ntop(AF_INET, &address, text.data(), text.size());
    std::string dotted = text.data();
    const bool isOwn = ntohl(address.s_addr) >> 24 == IN_LOOPBACKNET;
    if (!isOwn && std::find(confirmed.begin(), confirmed.end(), dotted) == confirmed.end()) {
        throw Failure("the server " + shown(nameOf(server)) +
                          " is not on this machine, and a load may keep it from "
                          "serving others: if it is yours to try, say so with --confirm-address " +
                          dotted,
                      kRefused);
    }
    return dotted;
}

}  // namespace

void keepToTargets(const std::vector<std::string> &confirmed) {
    std::deque<Target> targets;
    for (const RadServer &server : Configuration::servers(RAD_SERVER_AUTH)) {
        targets.emplace_back(allowedAddressOf(server, confirmed), server);
    }
    radConfDelAuthServ();
    for (const Target &target : targets) {
        const char *nasIdentifier = target.nasIdentifier ? target.nasIdentifier->c_str() : nullptr;
        if (radConfAddAuthServ(target.address.c_str(), target.port, target.timeout, target.retries,
                               target.secret.text().c_str(), nasIdentifier) != 0) {
            throw Failure("out of memory");
        }
    }
}

}  // namespace lanyardctl
