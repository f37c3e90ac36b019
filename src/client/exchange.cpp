// Server choice: one request, completed for and sent to one configured server after the other.
#include <arpa/inet.h>
#include <array>
#include <atomic>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/engine.h>
#include <palcore.h>

#include "base/log.h"
#include "client/last_error.h"
#include "client/transport.h"
#include "conf/store.h"

namespace lanyard {
namespace {

// Identifier of the next try, whichever thread makes it.
std::atomic<uint8_t> radReqIdCounter{0};

// The value with which Message-Authenticator is added; the packer signs it.
constexpr std::array<uint8_t, RAD_DIGEST_SIZE> radMsgAuthPlaceholder{};

// What a request needs of the configuration.
struct Servers {
    const int32_t *timeout = nullptr;
    const int32_t *retries = nullptr;
    ServerList list = {};

    bool usable() const { return list.slots && list.count >= 1 && timeout && retries; }
};

// The caller's list while it is completed. The caller holds it by its first pair, so that record
// stays where it is: when the first pair is deleted, the next one moves into its record.
class RequestPairs {
  public:
    explicit RequestPairs(RadPair *head) : head_(head) {}

    void remove(int attrNum) {
        if (empty_) {
            return;
        }
        if (head_->attrNum != attrNum) {
            radPairDelete(&head_->next, attrNum);
        } else if (head_->next) {
            moveToHead(head_->next);
        } else {
            empty_ = true;
        }
    }

    bool add(int attrNum, const void *value, int length) {
        if (!empty_) {
            return radPairAdd(&head_, attrNum, value, length) != nullptr;
        }
        RadPair *pair = radPairNew(attrNum, value, length);
        if (!pair) {
            return false;
        }
        moveToHead(pair);
        empty_ = false;
        return true;
    }

  private:
    void moveToHead(RadPair *pair) {
        *head_ = *pair;
        pair->next = nullptr;
        radPairListFree(pair);
    }

    RadPair *head_;
    bool empty_ = false;
};

// The identity of this device: the server's own NAS-Identifier, else NAS-IP-Address (RFC 2865
// sections 5.4 and 5.32).
bool addNasIdentity(RequestPairs &pairs, const RadServer &server, RadLastError &outcome) {
    if (server.extra) {
        return pairs.add(RAD_ATTR_NAS_IDENTIFIER, server.extra, 0);
    }
    const uint32_t address = radGetHostIP();
    if (address == 0 || address == INADDR_NONE) {
        outcome.reason = RAD_REASON_NO_OWN_ADDRESS;
        return false;
    }
    const uint32_t hostOrder = ntohl(address);
    return pairs.add(RAD_ATTR_NAS_IP_ADDRESS, &hostOrder, sizeof(hostOrder));
}

// Completes the request for one server; what an earlier try added goes first. Message-Authenticator
// comes last, because it is signed when it is packed.
bool completeRequest(RadPair *list, const RadServer &server, RadRequestDesc &desc,
                     RadLastError &outcome) {
    failAt(outcome, RAD_STEP_PREPARE, RAD_REASON_PACK);
    RequestPairs pairs(list);
    pairs.remove(RAD_ATTR_NAS_IDENTIFIER);
    pairs.remove(RAD_ATTR_NAS_IP_ADDRESS);
    pairs.remove(RAD_ATTR_MESSAGE_AUTHENTICATOR);
    if (!addNasIdentity(pairs, server, outcome)) {
        return false;
    }
    desc.identifier = radReqIdCounter.fetch_add(1, std::memory_order_relaxed);
    return desc.code != RAD_CODE_ACCESS_REQUEST ||
           pairs.add(RAD_ATTR_MESSAGE_AUTHENTICATOR, radMsgAuthPlaceholder.data(),
                     static_cast<int>(radMsgAuthPlaceholder.size()));
}

// Sends the request to one server. False when the exchange may not go on with a further server.
bool tryServer(const char *function, int code, const RadServer &server, const Servers &servers,
               RadPair *pairs, RadPair **replyOut, int &result) {
    result = -1;
    RadLastError outcome = outcomeAt(server.host, server.port);
    RadRequestDesc desc{
        .code = static_cast<uint8_t>(code),
        .identifier = 0,
        .host = server.host,
        .port = server.port,
        .timeout = server.timeout == -1 ? *servers.timeout : server.timeout,
        .retries = server.retries == -1 ? *servers.retries : server.retries,
        .secret = server.secret,
    };
    if (!desc.secret) {
        radLogAs(function, kLogError, "radBuildAndSendReq: Server %s:%d Has No Secret\n", desc.host,
                 server.port);
        failAt(outcome, RAD_STEP_PREPARE, RAD_REASON_NO_SECRET);
        noteOutcome(outcome);
        return false;
    }
    const bool completed = completeRequest(pairs, server, desc, outcome);
    if (completed) {
        result = sendToServer(desc, pairs, replyOut, outcome);
    }
    noteOutcome(outcome);
    return completed;
}

// The servers for a request code. False, with the reason logged, when there is none to ask.
bool findServers(const char *function, int code, Servers &servers) {
    RadLastError outcome = outcomeAt("", 0);
    if (code != RAD_CODE_ACCESS_REQUEST && code != RAD_CODE_ACCOUNTING_REQUEST) {
        radLogAs(function, kLogError, "radBuildAndSendReq: Invalid Request Code %d\n", code);
        failAt(outcome, RAD_STEP_PREPARE, RAD_REASON_REQUEST_CODE);
        noteOutcome(outcome);
        return false;
    }
    servers.list = code == RAD_CODE_ACCOUNTING_REQUEST ? acctServers() : authServers();
    if (!servers.usable()) {
        radLogAs(function, kLogError, "radBuildAndSendReq: RADIUS is not configured properly\n");
        failAt(outcome, RAD_STEP_PREPARE, RAD_REASON_NOT_CONFIGURED);
        noteOutcome(outcome);
        return false;
    }
    return true;
}

// Asks the configured servers in slot order, as many as the count says, passing over free slots.
// `results` null: until one gives a reply or an error other than -1. Otherwise all of them.
int askServers(const char *function, int code, RadPair *pairs, RadPair **replyOut,
               int32_t *results) {
    forgetOutcomes();
    Servers servers{.timeout = defaultTimeout(), .retries = defaultRetries()};
    if (!pairs || !replyOut) {
        return -1;
    }
    *replyOut = nullptr;
    if (!findServers(function, code, servers)) {
        return -1;
    }
    int result = -1;
    uint32_t asked = 0;
    for (const RadServer &server : *servers.list.slots) {
        if (asked == servers.list.count) {
            break;
        }
        if (!server.host) {
            continue;
        }
        // Only the last reply reaches the caller; nobody else could release the one before it.
        radPairListFree(*replyOut);
        *replyOut = nullptr;
        if (!tryServer(function, code, server, servers, pairs, replyOut, result)) {
            return -1;
        }
        if (results) {
            results[asked] = result;
        } else if (*replyOut || result != -1) {
            return result;
        }
        ++asked;
    }
    return result;
}

}  // namespace
}  // namespace lanyard

using namespace lanyard;

int radBuildAndSendReq(int code, RadPair *pairs, RadPair **replyOut) {
    return askServers(__func__, code, pairs, replyOut, nullptr);
}

int radBuildAndSendReqCheckAllServer(int code, RadPair *pairs, RadPair **replyOut,
                                     int32_t *results) {
    if (!results) {
        forgetOutcomes();
        if (replyOut) {
            *replyOut = nullptr;
        }
        return -1;
    }
    return askServers(__func__, code, pairs, replyOut, results);
}
