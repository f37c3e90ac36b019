// PAP (RFC 2865 section 5.2): the password travels hidden by the shared secret.
#include <lanyard/radius/methods.h>

#include "login/login.h"
#include "login/method.h"

namespace lanyard {
namespace {

int logInWith(const char *password, const Login &login) {
    const Pap method{password};
    return logIn(login, method.isGood(),
                 [&method](PairList &request) { return method.addTo(request); });
}

}  // namespace

bool Pap::isGood() const {
    return isWithin(password, RAD_PASSWORD_MAX);
}

bool Pap::addTo(PairList &request) const {
    return request.addText(RAD_ATTR_USER_PASSWORD, password) &&
           request.addNumber(RAD_ATTR_SERVICE_TYPE, kAuthenticateOnly);
}

}  // namespace lanyard

using namespace lanyard;

int radAuth(const char *userName, const char *password) {
    return logInWith(password, {.contract = rowOf(kLogins, __func__), .userName = userName});
}

int radAuthCheckAllServer(const char *userName, const char *password, int32_t *results) {
    return logInWith(
        password, {.contract = rowOf(kLogins, __func__), .userName = userName, .results = results});
}

int radAuthAndGetAttributes(const char *userName, const char *password, uint32_t *idleMinutes,
                            uint32_t *sessionMinutes) {
    return logInWith(password, {.contract = rowOf(kLogins, __func__),
                                .userName = userName,
                                .limits = {idleMinutes, sessionMinutes}});
}
