// What became of this thread's last request, and how it is told.
#include "client/last_error.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <span>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/conf.h>
#include <lanyard/radius/engine.h>

#include "base/text.h"

namespace lanyard {
namespace {

struct Outcomes {
    std::array<RadLastError, RAD_SERVERS_MAX> records;
    size_t count;
};

// Plain data without an initialiser to run: the library has no C++ run-time library that would.
constinit thread_local Outcomes outcomes{};

struct Text {
    int32_t number;
    const char *text;
};

constexpr auto kSteps = std::to_array<Text>({
    {RAD_STEP_SOCKET, "opening a socket failed"},
    {RAD_STEP_BIND, "binding the socket failed"},
    {RAD_STEP_SEND, "sending failed"},
    {RAD_STEP_WAIT, "waiting for the reply failed"},
    {RAD_STEP_RECEIVE, "receiving failed"},
});

constexpr auto kReasons = std::to_array<Text>({
    {RAD_REASON_NOT_CONFIGURED, "no server is configured for this"},
    {RAD_REASON_REQUEST_CODE, "neither an Access-Request nor an Accounting-Request"},
    {RAD_REASON_NO_SECRET, "no shared secret is configured"},
    {RAD_REASON_NO_OWN_ADDRESS, "this machine's own host name has no address for NAS-IP-Address"},
    {RAD_REASON_NO_MEMORY, "out of memory"},
    {RAD_REASON_NO_RANDOM, "no random bytes for the request"},
    {RAD_REASON_PACK, "an attribute cannot be packed into the request"},
    {RAD_REASON_TOO_LARGE, "the request has more than 4096 bytes"},
    {RAD_REASON_HOST_UNKNOWN, "host name not found"},
    {RAD_REASON_REPLY_SHORT, "reply refused: shorter than a header"},
    {RAD_REASON_REPLY_LENGTH, "reply refused: its length is not the one that it says"},
    {RAD_REASON_REPLY_IDENTIFIER, "reply refused: it answers another request"},
    {RAD_REASON_REPLY_AUTHENTICATOR,
     "reply refused: wrong response authenticator: wrong secret, or not from the server"},
    {RAD_REASON_REPLY_ATTRIBUTES, "reply refused: malformed attributes, or no memory for them"},
    {RAD_REASON_REPLY_UNSIGNED, "reply refused: no Message-Authenticator"},
    {RAD_REASON_REPLY_SIGNATURE,
     "reply refused: wrong Message-Authenticator: wrong secret, or not from the server"},
});

constexpr auto kCodes = std::to_array<Text>({
    {RAD_CODE_ACCESS_ACCEPT, "accepted by the server (Access-Accept)"},
    {RAD_CODE_ACCESS_REJECT, "rejected by the server (Access-Reject)"},
    {RAD_CODE_ACCOUNTING_RESPONSE, "answered by the server (Accounting-Response)"},
    {RAD_CODE_ACCESS_CHALLENGE, "the server asks for more (Access-Challenge)"},
});

const char *textFor(std::span<const Text> texts, int32_t number) {
    const auto found = std::find_if(texts.begin(), texts.end(), [number](const Text &candidate) {
        return candidate.number == number;
    });
    return found == texts.end() ? nullptr : found->text;
}

using Line = std::array<char, RAD_LAST_ERROR_TEXT_SIZE>;

const char *knownText(const RadLastError &error) {
    if (error.reason > 0) {
        return textFor(kSteps, error.step);
    }
    if (error.reason == RAD_REASON_REPLY_UNSIGNED && error.attribute == RAD_ATTR_EAP_MESSAGE) {
        return "reply refused: EAP-Message without Message-Authenticator";
    }
    return error.reason < 0 ? textFor(kReasons, error.reason) : textFor(kCodes, error.code);
}

// What became of the request, without the server.
Line describe(const RadLastError &error) {
    Line line{};
    const char *known = knownText(error);
    if (error.reason > 0) {
        std::snprintf(line.data(), line.size(), "%s: %s", known ? known : "failed",
                      ErrorText(error.reason).text());
    } else if (known) {
        std::snprintf(line.data(), line.size(), "%s", known);
    } else if (error.reason == RAD_REASON_NO_REPLY) {
        std::snprintf(line.data(), line.size(),
                      "no reply in %d %s of %d s: server down, wrong port, or wrong secret",
                      error.tries, error.tries == 1 ? "try" : "tries", error.timeout);
    } else if (error.reason == RAD_REASON_REPLY_ATTRIBUTE ||
               error.reason == RAD_REASON_REPLY_HOOK) {
        std::snprintf(line.data(), line.size(), "reply refused: attribute %d%s", error.attribute,
                      error.reason == RAD_REASON_REPLY_HOOK ? ", by this program's hook" : "");
    } else {
        std::snprintf(line.data(), line.size(), "reply with code %d", error.code);
    }
    return line;
}

}  // namespace

void forgetOutcomes() {
    outcomes.count = 0;
}

int failAt(Outcome &outcome, int32_t step, int32_t reason) {
    outcome.step = step;
    outcome.reason = reason;
    return -1;
}

void noteOutcome(const char *host, uint32_t port, const Outcome &outcome) {
    RadLastError record{.host = {},
                        .port = port,
                        .step = outcome.step,
                        .reason = outcome.reason,
                        .code = outcome.code,
                        .attribute = outcome.attribute,
                        .tries = outcome.tries,
                        .timeout = outcome.timeout};
    std::memcpy(record.host, host, strnlen(host, sizeof(record.host) - 1));
    noteOutcome(record);
}

void noteOutcome(const RadLastError &record) {
    // A hook that makes requests of its own may fill the list: the last server is the one to keep.
    outcomes.count = std::min(outcomes.count + 1, outcomes.records.size());
    outcomes.records[outcomes.count - 1] = record;
}

}  // namespace lanyard

using namespace lanyard;

const RadLastError *radLastError(void) {
    return outcomes.count == 0 ? nullptr : &outcomes.records[outcomes.count - 1];
}

const RadLastError *radLastErrorAt(int index) {
    return index < 0 || static_cast<size_t>(index) >= outcomes.count
               ? nullptr
               : &outcomes.records[static_cast<size_t>(index)];
}

int radLastErrorText(const RadLastError *error, char *buffer, size_t size) {
    if (!error || !buffer || size == 0) {
        return -1;
    }
    const Line line = describe(*error);
    return error->host[0]
               ? std::snprintf(buffer, size, "%s:%u: %s", error->host, error->port, line.data())
               : std::snprintf(buffer, size, "%s", line.data());
}
