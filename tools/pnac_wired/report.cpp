#include "tools/pnac_wired/report.h"

#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <utility>

namespace lanyard::pnac {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::array<std::pair<const char *, uint64_t Counters::*>, 19> kCounterNames = {{
    {"frames_received", &Counters::framesReceived},
    {"frames_malformed", &Counters::framesMalformed},
    {"frames_foreign", &Counters::framesForeign},
    {"frames_while_quiet", &Counters::framesWhileQuiet},
    {"starts", &Counters::starts},
    {"logoffs", &Counters::logoffs},
    {"eap_malformed", &Counters::eapMalformed},
    {"eap_unexpected", &Counters::eapUnexpected},
    {"identities_too_long", &Counters::identitiesTooLong},
    {"refused", &Counters::refused},
    {"evicted", &Counters::evicted},
    {"requests_repeated", &Counters::requestsRepeated},
    {"records_sent", &Counters::recordsSent},
    {"records_delayed", &Counters::recordsDelayed},
    {"records_received", &Counters::recordsReceived},
    {"records_malformed", &Counters::recordsMalformed},
    {"records_unexpected", &Counters::recordsUnexpected},
    {"authorized", &Counters::authorized},
    {"failed", &Counters::failed},
}};
static_assert(kCounterNames.size() * sizeof(uint64_t) == sizeof(Counters));

double secondsOf(Duration duration) {
    return std::chrono::duration<double>(duration).count();
}

// Octets that are no UTF-8 become U+FFFD.
std::string lineOf(const Json &object) {
    return object.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
}

std::string asString(ByteView octets) {
    return {octets.begin(), octets.end()};
}

}  // namespace

std::string_view nameOf(SessionRule rule) {
    return rule == SessionRule::kReauthenticate ? "reauthenticate" : "terminate";
}

std::string_view nameOf(EventKind kind) {
    switch (kind) {
        case EventKind::kAuthorized:
            return "authorized";
        case EventKind::kFailed:
            return "failed";
        default:
            return "unauthorized";
    }
}

std::string_view nameOf(Reason reason) {
    switch (reason) {
        case Reason::kAccepted:
            return "accepted";
        case Reason::kRejected:
            return "rejected";
        case Reason::kSupplicantSilent:
            return "no answer from the supplicant";
        case Reason::kRelaySilent:
            return "no answer from the relay";
        case Reason::kRelayNotRunning:
            return "relay not running";
        case Reason::kNoServer:
            return "no server answered";
        case Reason::kNotSent:
            return "request not sent";
        case Reason::kExpired:
            return "conversation expired";
        case Reason::kIdentityTooLong:
            return "identity too long";
        case Reason::kLogoff:
            return "logoff";
        case Reason::kSessionTimeout:
            return "session timeout";
        case Reason::kNotReauthenticated:
            return "not authenticated again";
        case Reason::kLinkDown:
            return "link down";
        default:
            return "shutdown";
    }
}

std::string toHex(ByteView octets) {
    constexpr const char *kDigits = "0123456789abcdef";
    std::string text;
    for (const uint8_t octet : octets) {
        text += kDigits[octet >> 4];
        text += kDigits[octet & 0xf];
    }
    return text;
}

std::string escaped(ByteView octets) {
    std::string text;
    for (const uint8_t octet : octets) {
        if (octet >= 0x20 && octet < 0x7f && octet != '"' && octet != '\\') {
            text += static_cast<char>(octet);
        } else {
            text += "\\x" + toHex({&octet, 1});
        }
    }
    return text;
}

std::string Reporter::ready(const Mac &address) const {
    if (format_ == Format::kJson) {
        return lineOf(
            {{"event", "ready"}, {"interface", interface_}, {"address", toText(address)}});
    }
    return "ready on " + interface_ + ", " + toText(address) + '\n';
}

std::string Reporter::event(const Event &event) const {
    return format_ == Format::kJson ? eventAsJson(event) : eventAsText(event);
}

std::string Reporter::eventAsText(const Event &event) const {
    std::array<char, 32> seconds = {};
    (void)std::snprintf(seconds.data(), seconds.size(), "%.4f", secondsOf(event.duration));
    std::string line = toText(event.address) + ' ' + std::string(nameOf(event.kind)) +
                       " identity=\"" + escaped(event.identity) + "\" seconds=" + seconds.data();
    if (event.kind == EventKind::kAuthorized) {
        line += event.reauthentication ? " again" : "";
    } else {
        line += " reason=\"" + std::string(nameOf(event.reason)) + '"';
    }
    const auto addKey = [&](const char *name, ByteView key) {
        if (!key.empty()) {
            line += std::string(" ") + name + '=' +
                    (showKeys_ ? toHex(key) : std::to_string(key.size()) + " octets");
        }
    };
    addKey("recv-key", event.keyInfo.recvKey);
    addKey("send-key", event.keyInfo.sendKey);
    if (const auto &session = event.keyInfo.session) {
        line += " session-timeout=" + std::to_string(session->seconds) + " then=";
        line += nameOf(session->rule);
    }
    if (!event.keyInfo.vlan.empty()) {
        line += " vlan=\"" + escaped(event.keyInfo.vlan) + '"';
    }
    return line + '\n';
}

std::string Reporter::eventAsJson(const Event &event) const {
    Json object = {
        {"event", nameOf(event.kind)},           {"interface", interface_},
        {"address", toText(event.address)},      {"identity", asString(event.identity)},
        {"identity_hex", toHex(event.identity)}, {"reason", nameOf(event.reason)},
        {"seconds", secondsOf(event.duration)},  {"reauthentication", event.reauthentication}};
    const auto addKey = [&](const std::string &name, ByteView key) {
        if (!key.empty()) {
            object[name + "_length"] = key.size();
            if (showKeys_) {
                object[name] = toHex(key);
            }
        }
    };
    addKey("recv_key", event.keyInfo.recvKey);
    addKey("send_key", event.keyInfo.sendKey);
    if (const auto &session = event.keyInfo.session) {
        object["session_timeout"] = session->seconds;
        object["then"] = nameOf(session->rule);
    }
    if (!event.keyInfo.vlan.empty()) {
        object["vlan"] = asString(event.keyInfo.vlan);
    }
    return lineOf(object);
}

void forEachCounter(const Counters &counters, const ProgramCounters &more,
                    const std::function<void(const char *name, uint64_t value)> &call) {
    call("supplicants", more.supplicants);
    call("frames_not_sent", more.framesNotSent);
    call("lines_lost", more.linesLost);
    for (const auto &[name, counter] : kCounterNames) {
        call(name, counters.*counter);
    }
}

std::string Reporter::counters(const Counters &counters, const ProgramCounters &more) const {
    if (format_ == Format::kJson) {
        Json object = {{"event", "counters"}, {"interface", interface_}};
        forEachCounter(counters, more,
                       [&](const char *name, uint64_t value) { object[name] = value; });
        return lineOf(object);
    }
    std::string line = "counters";
    forEachCounter(counters, more, [&](const char *name, uint64_t value) {
        line += std::string(" ") + name + '=' + std::to_string(value);
    });
    return line + '\n';
}

}  // namespace lanyard::pnac
