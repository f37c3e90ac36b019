// PAP (RFC 2865 section 5.2): the password travels hidden by the shared secret.
#include <lanyard/radius/engine.h>
#include <lanyard/radius/methods.h>

#include "base/log.h"
#include "client/last_error.h"
#include "login/login.h"

namespace lanyard {
namespace {

// Checks the inputs and builds the request.
bool buildRequest(const Reporting &reporting, const char *userName, const char *password,
                  PairList &request) {
    forgetOutcomes();
    if (!isWithin(userName, RAD_USER_NAME_MAX) || !isWithin(password, RAD_PASSWORD_MAX)) {
        radLogAs(reporting.function, reporting.refusalLevel, "Invalid username or password\n");
        return false;
    }
    return request.addText(RAD_ATTR_USER_NAME, userName) &&
           request.addText(RAD_ATTR_USER_PASSWORD, password) &&
           request.addNumber(RAD_ATTR_SERVICE_TYPE, kAuthenticateOnly);
}

int authenticate(const Reporting &reporting, const char *userName, const char *password,
                 const SessionLimits *limits) {
    PairList request;
    if (!buildRequest(reporting, userName, password, request)) {
        return -1;
    }
    PairList reply;
    const bool accepted = logIn(reporting, userName, request, reply);
    showReply(reporting, reply.head(), limits);
    return accepted ? 0 : -1;
}

}  // namespace
}  // namespace lanyard

using namespace lanyard;

int radAuth(const char *userName, const char *password) {
    const Reporting reporting{.function = __func__,
                              .refusalLevel = kLogError,
                              .success = Sink::kOutput,
                              .failureLevel = kLogError,
                              .heading = Sink::kOutput};
    return authenticate(reporting, userName, password, nullptr);
}

int radAuthCheckAllServer(const char *userName, const char *password, int32_t *results) {
    const Reporting reporting{.function = __func__,
                              .refusalLevel = kLogTrace,
                              .success = Sink::kTrace,
                              .failureLevel = kLogTrace,
                              .heading = Sink::kTrace};
    PairList request;
    if (!buildRequest(reporting, userName, password, request)) {
        return -1;
    }
    PairList reply;
    const bool accepted =
        radBuildAndSendReqCheckAllServer(RAD_CODE_ACCESS_REQUEST, request.head(), reply.address(),
                                         results) == RAD_CODE_ACCESS_ACCEPT;
    reportOutcome(reporting, userName, accepted);
    showReply(reporting, reply.head(), nullptr);
    return accepted ? 0 : -1;
}

int radAuthAndGetAttributes(const char *userName, const char *password, uint32_t *idleMinutes,
                            uint32_t *sessionMinutes) {
    const Reporting reporting{.function = __func__,
                              .refusalLevel = kLogError,
                              .success = Sink::kTrace,
                              .failureLevel = kLogTrace,
                              .heading = Sink::kOutput};
    const SessionLimits limits{.idleMinutes = idleMinutes, .sessionMinutes = sessionMinutes};
    return authenticate(reporting, userName, password, &limits);
}
