// The calls that wait, for programs that want them resilient: a loop each.
#include <array>
#include <cerrno>
#include <memory>
#include <span>

#include <lanyard/radius/error.h>
#include <lanyard/radius/loop.h>

#include "client/loop.h"

namespace lanyard {
namespace {

// What the one request of a loop is answered.
struct Answer {
    bool isThere = false;
    int code = -1;
    RadPair *reply = nullptr;
};

void keepAnswer(void *context, RadRequest * /*request*/, int code, RadPair *reply) {
    *static_cast<Answer *>(context) = {.isThere = true, .code = code, .reply = reply};
}

struct LoopDeleter {
    void operator()(RadLoop *loop) const { radLoopDestroy(loop); }
};

using LoopOwner = std::unique_ptr<RadLoop, LoopDeleter>;

int failWithoutServer(int32_t step, int32_t reason) {
    Outcome outcome;
    failAt(outcome, step, reason);
    forgetOutcomes();
    noteOutcome("", 0, outcome);
    return -1;
}

int ask(ServerSet::Owner servers, int only, bool isComplete, int code, const RadPair *pairs,
        RadPair **replyOut) {
    errno = 0;
    const LoopOwner loop(radLoopCreate());
    if (!loop && errno != 0) {
        return failWithoutServer(RAD_STEP_SOCKET, errno);
    }
    Answer answer;
    const RadRequest *request = loop && servers ? startRequest(*loop,
                                                               {.code = code,
                                                                .servers = std::move(servers),
                                                                .only = only,
                                                                .isComplete = isComplete},
                                                               pairs, keepAnswer, &answer)
                                                : nullptr;
    if (!request) {
        return failWithoutServer(RAD_STEP_PREPARE, RAD_REASON_NO_MEMORY);
    }
    while (!answer.isThere) {
        if (radLoopRun(loop.get(), -1) < 0) {
            return failWithoutServer(RAD_STEP_WAIT, errno);
        }
    }
    *replyOut = answer.reply;
    return answer.code;
}

}  // namespace

bool isResilient() {
    return radOptionGet(RAD_OPTION_RESILIENT) != 0;
}

int askResiliently(const ServerChoice &choice, int code, const RadPair *pairs, RadPair **replyOut) {
    return ask(ServerSet::copy(choice), -1, false, code, pairs, replyOut);
}

int askEachResiliently(const ServerChoice &choice, int code, const RadPair *pairs,
                       RadPair **replyOut, int32_t *results) {
    const auto servers = ServerSet::copy(choice);
    std::array<RadLastError, RAD_SERVERS_MAX> outcomes{};
    int result = -1;
    for (uint8_t index = 0; index < choice.count; ++index) {
        radPairListFree(*replyOut);
        *replyOut = nullptr;
        result = ask(servers ? servers->share() : nullptr, index, false, code, pairs, replyOut);
        results[index] = result;
        outcomes[index] = *radLastError();
    }
    forgetOutcomes();
    for (const RadLastError &outcome : std::span(outcomes).first(choice.count)) {
        noteOutcome(outcome);
    }
    return result;
}

int sendResiliently(const RadRequestDesc &desc, const RadPair *pairs, RadPair **replyOut) {
    const RadServer server{.host = const_cast<char *>(desc.host),
                           .port = static_cast<uint16_t>(desc.port),
                           .timeout = desc.timeout,
                           .retries = desc.retries,
                           .secret = const_cast<char *>(desc.secret),
                           .extra = nullptr,
                           .rowKey = -1,
                           .rowId = -1};
    return ask(ServerSet::copy({.servers = &server, .count = 1}, false), 0, true, desc.code, pairs,
               replyOut);
}

}  // namespace lanyard
