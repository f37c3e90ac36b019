// Logins on a loop. Nothing of them is printed: the callback is told.
#include <lanyard/radius/engine.h>
#include <lanyard/radius/loop.h>

#include "client/loop.h"
#include "login/login.h"
#include "login/method.h"

namespace lanyard {
namespace {

void tellLogin(const Listener &listener, RadRequest *request, int code, RadPair *reply) {
    PairList owner;
    *owner.address() = reply;
    RadLogin login{.result = code == RAD_CODE_ACCESS_ACCEPT ? 0 : -1,
                   .code = code,
                   .idleMinutes = 0,
                   .sessionMinutes = 0,
                   .reply = reply};
    for (const RadPair *pair = reply; pair; pair = pair->next) {
        noteLimits(*pair, {&login.idleMinutes, &login.sessionMinutes});
    }
    listener.loginDone(listener.context, request, &login);
}

// Starts a login. `addAttributes` adds what the method sends after User-Name.
template <typename AddAttributes>
RadRequest *start(RadLoop *loop, const Login &login, bool inputsAreGood, RadLoginDone done,
                  void *context, AddAttributes addAttributes) {
    PairList request;
    if (!loop || !done || !startRequest(login, inputsAreGood, request) || !addAttributes(request)) {
        return nullptr;
    }
    return startConfigured(loop, RAD_CODE_ACCESS_REQUEST, request.head(),
                           {.tell = tellLogin, .context = context, .loginDone = done});
}

}  // namespace
}  // namespace lanyard

using namespace lanyard;

RadRequest *radAuthStart(RadLoop *loop, const char *userName, const char *password,
                         RadLoginDone done, void *context) {
    const Pap method{password};
    return start(loop, {.contract = rowOf(kLoginStarts, __func__), .userName = userName},
                 method.isGood(), done, context,
                 [&method](PairList &request) { return method.addTo(request); });
}

RadRequest *radChapAuthStart(RadLoop *loop, const char *userName, const uint8_t *chapPassword,
                             int chapPasswordLen, const uint8_t *chapChallenge,
                             int chapChallengeLen, RadLoginDone done, void *context) {
    const Chap method{chapPassword, chapPasswordLen, chapChallenge, chapChallengeLen};
    return start(loop, {.contract = rowOf(kLoginStarts, __func__), .userName = userName},
                 method.isGood(), done, context,
                 [&method](PairList &request) { return method.addTo(request); });
}

RadRequest *radMschapStart(RadLoop *loop, const char *userName, const char *password,
                           RadLoginDone done, void *context) {
    const Mschap method{userName, password, NtResponseSource::kInProcess};
    return start(loop, {.contract = rowOf(kLoginStarts, __func__), .userName = userName},
                 password != nullptr, done, context,
                 [&method](PairList &request) { return method.addTo(request); });
}

RadRequest *radMschapv2Start(RadLoop *loop, const char *userName, const char *password,
                             RadLoginDone done, void *context) {
    const Mschapv2 method{userName, password, NtResponseSource::kInProcess};
    return start(loop, {.contract = rowOf(kLoginStarts, __func__), .userName = userName},
                 password != nullptr, done, context,
                 [&method](PairList &request) { return method.addTo(request); });
}
