// The calls that wait, for programs that want them resilient: a loop each.
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

// Without a request there is no memory, or no descriptor for the loop.
int waitFor(RadLoop *loop, const RadRequest *request, const Answer &answer, RadPair **replyOut) {
    if (!request) {
        Outcome outcome;
        failAt(outcome, RAD_STEP_PREPARE, RAD_REASON_NO_MEMORY);
        forgetOutcomes();
        noteOutcome("", 0, outcome);
        return -1;
    }
    while (!answer.isThere && radLoopRun(loop, -1) >= 0) {
    }
    *replyOut = answer.reply;
    return answer.code;
}

int ask(ServerSet::Owner servers, int only, bool isComplete, int code, const RadPair *pairs,
        RadPair **replyOut) {
    const LoopOwner loop(radLoopCreate());
    Answer answer;
    RadRequest *request = loop && servers ? startRequest(*loop,
                                                         {.code = code,
                                                          .servers = std::move(servers),
                                                          .only = only,
                                                          .isComplete = isComplete},
                                                         pairs, keepAnswer, &answer)
                                          : nullptr;
    return waitFor(loop.get(), request, answer, replyOut);
}

}  // namespace

int askResiliently(int code, const RadPair *pairs, RadPair **replyOut) {
    const LoopOwner loop(radLoopCreate());
    Answer answer;
    const RadRequest *request = radRequestStart(loop.get(), code, pairs, keepAnswer, &answer);
    return waitFor(loop.get(), request, answer, replyOut);
}

int askEachResiliently(const ServerChoice &choice, int code, const RadPair *pairs,
                       RadPair **replyOut, int32_t *results) {
    const auto servers = ServerSet::copy(choice);
    int result = -1;
    for (int index = 0; index < choice.count; ++index) {
        radPairListFree(*replyOut);
        *replyOut = nullptr;
        result = ask(servers ? servers->share() : nullptr, index, false, code, pairs, replyOut);
        results[index] = result;
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
    return ask(ServerSet::copy({.servers = &server, .count = 1}), 0, true, desc.code, pairs,
               replyOut);
}

}  // namespace lanyard
