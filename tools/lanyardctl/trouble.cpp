#include "trouble.h"

#include <algorithm>
#include <array>
#include <chrono>

#include "configuration.h"
#include "inquiry.h"
#include "radius_packet.h"
#include "style.h"
#include "table.h"

namespace lanyardctl {

namespace {

// Reasons of this machine's own, which no question to the server tells more about, and what to look at.
struct OwnReason {
    int reason;
    const char *next;
    const char *nextOfLogins = "";  // what helps them beside that: accounting has no nas-identifier
};
constexpr auto kOwnReasons = std::to_array<OwnReason>({
    {RAD_REASON_NO_OWN_ADDRESS, "give this machine's own name an address in /etc/hosts",
     ", or the server's entry a nas-identifier"},
    {RAD_REASON_PACK, "", "a nas-identifier has at most 253 characters"},
    {RAD_REASON_NO_MEMORY, ""},
    {RAD_REASON_NO_RANDOM, ""},
    {RAD_REASON_TOO_LARGE, ""},
});

const OwnReason *ownReasonOf(const RadLastError &error) {
    const auto *const found =
        std::find_if(kOwnReasons.begin(), kOwnReasons.end(),
                     [&error](const OwnReason &row) { return row.reason == error.reason; });
    return found == kOwnReasons.end() ? nullptr : found;
}

// What the second question finds out about a server.
Finding findingAt(const RadLastError &error, const RadServer &server, int kind) {
    constexpr std::chrono::seconds kWait{2};
    return inquire(server, kind,
                   std::min<std::chrono::milliseconds>(kWait, std::chrono::seconds(error.timeout)));
}

std::string reasonAt(const RadLastError &error, const Finding &finding) {
    const bool isTold = finding.state != State::kAnswers && finding.state != State::kSilent;
    return isTold ? wordsFor(finding) : error.reason == 0 ? codeName(error.code) : "";
}

std::string nextAt(const RadLastError &error, const Finding &finding, const RadServer &server) {
    if (finding.state != State::kAnswers) {
        return nextStepFor(finding, server);
    }
    return error.reason == RAD_REASON_NO_REPLY
               ? "the server answers other questions and is silent about this request: its log "
                 "says why (a proxy may wait for another server)"
               : "the server answers other questions: its answer to this request is not valid";
}

}  // namespace

std::vector<RadLastError> askedServers() {
    std::vector<RadLastError> servers;
    for (int i = 0; const RadLastError *error = radLastErrorAt(i); ++i) {
        servers.push_back(*error);
    }
    return servers;
}

std::string nameOf(const RadLastError &server) {
    return std::string(server.host) + ":" + std::to_string(server.port);
}

std::string describe(const RadLastError &error) {
    std::array<char, RAD_LAST_ERROR_TEXT_SIZE> text{};
    radLastErrorText(&error, text.data(), text.size());
    return text.data();
}

std::vector<Trouble> troublesOf(const std::vector<RadLastError> &servers, int kind) {
    std::vector<Trouble> troubles;
    const std::vector<RadServer> configured = Configuration::servers(kind);
    for (const RadLastError &error : servers) {
        const auto server =
            std::find_if(configured.begin(), configured.end(),
                         [&error](const RadServer &row) { return nameOf(row) == nameOf(error); });
        if (error.reason == 0) {
            continue;
        }
        Trouble &trouble = troubles.emplace_back(Trouble{describe(error), "", ""});
        if (const OwnReason *own = ownReasonOf(error)) {
            trouble.next =
                own->next + std::string(kind == RAD_SERVER_AUTH ? own->nextOfLogins : "");
        } else if (server != configured.end()) {
            const Finding finding = findingAt(error, *server, kind);
            trouble.reason = reasonAt(error, finding);
            trouble.next = nextAt(error, finding, *server);
        }
    }
    return troubles;
}

std::string textOf(const std::vector<Trouble> &troubles) {
    std::string text;
    for (const Trouble &trouble : troubles) {
        text += "\n  " + trouble.what;
        text += trouble.reason.empty() ? "" : "\n    Reason: " + toned(Tone::kBad, trouble.reason);
        text += trouble.next.empty() ? "" : "\n" + wrapped("    Next: ", trouble.next);
    }
    return text;
}

void addTo(Json &document, const std::vector<Trouble> &troubles) {
    for (const Trouble &trouble : troubles) {
        document["failed_servers"].push_back(
            {{"what", trouble.what}, {"reason", trouble.reason}, {"next", trouble.next}});
    }
}

}  // namespace lanyardctl
