// Accounting (RFC 2866): one record that carries Acct-Status-Type alone. Callers that need more
// build their own list for radBuildAndSendReq().
#include <cstdio>

#include <lanyard/radius/engine.h>
#include <lanyard/radius/methods.h>

#include "base/log.h"
#include "client/last_error.h"
#include "login/login.h"

using namespace lanyard;

int radAcct(uint32_t status) {
    forgetOutcomes();
    PairList request;
    if (!request.addNumber(RAD_ATTR_ACCT_STATUS_TYPE, status)) {
        return -1;
    }
    PairList reply;
    const int code =
        radBuildAndSendReq(RAD_CODE_ACCOUNTING_REQUEST, request.head(), reply.address());
    const bool answered = code == RAD_CODE_ACCOUNTING_RESPONSE;
    if (answered) {
        std::puts("RADIUS Accounting Exchange OK");
    } else {
        radLog(kLogError, "RADIUS Accounting Exchange Failed\n");
    }
    showReply(__func__, Sink::kOutput, reply.head(), {});
    return answered ? 0 : -1;
}
