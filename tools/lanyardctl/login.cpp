#include "login.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <sys/random.h>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/engine.h>
#include <lanyard/radius/loop.h>
#include <lanyard/radius/methods.h>

#include "failure.h"
#include "trouble.h"

namespace lanyardctl {

namespace {

using Clock = std::chrono::steady_clock;

// The reply as it came: the library's list lacks what the dictionary does not know. Hooks have no context
// of the caller's.
Bytes lastReply;

int keepReply(RadPair * /*pair*/, RadPair * /*list*/, RadPacket *reply, RadPacket * /*request*/,
              const char * /*secret*/) {
    const auto *bytes = reinterpret_cast<const uint8_t *>(reply);
    lastReply.assign(bytes, bytes + (reply->length[0] << 8 | reply->length[1]));
    return 1;  // the library decides
}

// The hook, for as long as this lives.
class ReplyKeeper {
  public:
    ReplyKeeper() {
        lastReply.clear();
        const RadFuncTbl hooks{nullptr, keepReply};
        radFuncTblInstall(&hooks);
    }
    ~ReplyKeeper() { radFuncTblUninstall(); }
    ReplyKeeper(const ReplyKeeper &) = delete;
    ReplyKeeper &operator=(const ReplyKeeper &) = delete;
    ReplyKeeper(ReplyKeeper &&) = delete;
    ReplyKeeper &operator=(ReplyKeeper &&) = delete;
};

struct Waiting {
    LoginOutcome outcome;
    Clock::time_point start = Clock::now();
    bool isOver = false;
};

void noteEnd(void *context, RadRequest * /*request*/, const RadLogin *login) {
    auto &waiting = *static_cast<Waiting *>(context);
    waiting.isOver = true;
    waiting.outcome.code = login->code;
    waiting.outcome.milliseconds =
        std::chrono::duration<double, std::milli>(Clock::now() - waiting.start).count();
    waiting.outcome.servers = askedServers();
    if (login->code < 0 || lastReply.empty() || lastReply[0] != login->code) {
        return;
    }
    const PacketView reply(lastReply);
    waiting.outcome.attributes = shownAttributes(reply.attributes());
    waiting.outcome.isSigned = reply.find(RAD_ATTR_MESSAGE_AUTHENTICATOR) != nullptr;
}

RadRequest *startChap(RadLoop *loop, const std::string &user, const std::string &password,
                      RadLoginDone done, void *context) {
    std::array<uint8_t, RAD_CHAP_CHALLENGE_SIZE> challenge{};
    std::array<uint8_t, RAD_CHAP_RESPONSE_SIZE> response{};
    if (getrandom(challenge.data(), challenge.size(), 0) !=
            static_cast<ssize_t>(challenge.size()) ||
        radChapRespMake(response.data(), reinterpret_cast<const uint8_t *>(password.data()),
                        static_cast<int>(password.size()),
                        challenge.data()) != RAD_CHAP_RESPONSE_SIZE) {
        return nullptr;
    }
    return radChapAuthStart(loop, user.c_str(), response.data(), RAD_CHAP_RESPONSE_SIZE,
                            challenge.data(), RAD_CHAP_CHALLENGE_SIZE, done, context);
}

}  // namespace

const MethodName &methodOf(const std::string &name) {
    return *std::find_if(kMethods.begin(), kMethods.end(),
                         [&name](const MethodName &row) { return row.name == name; });
}

RadRequest *startLogin(Method method, RadLoop *loop, const std::string &user,
                       const std::string &password, RadLoginDone done, void *context) {
    switch (method) {
        case Method::kChap:
            return startChap(loop, user, password, done, context);
        case Method::kMschap:
            return radMschapStart(loop, user.c_str(), password.c_str(), done, context);
        case Method::kMschapv2:
            radOptionSet(RAD_OPTION_STANDARD_SHA1, 1);
            return radMschapv2Start(loop, user.c_str(), password.c_str(), done, context);
        default:
            return radAuthStart(loop, user.c_str(), password.c_str(), done, context);
    }
}

LoginOutcome logIn(Method method, const std::string &user, const std::string &password) {
    const ReplyKeeper keeper;
    const std::unique_ptr<RadLoop, decltype(&radLoopDestroy)> loop(radLoopCreate(), radLoopDestroy);
    if (!loop) {
        throw Failure("out of memory or descriptors");
    }
    Waiting waiting;
    if (!startLogin(method, loop.get(), user, password, noteEnd, &waiting)) {
        throw Failure(kLoginRefused, kRefused);
    }
    while (!waiting.isOver && radLoopRun(loop.get(), -1) >= 0) {
    }
    return waiting.outcome;
}

}  // namespace lanyardctl
