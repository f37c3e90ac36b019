#include "tests/support/failing_call.h"

#include <cerrno>
#include <cstring>

namespace lanyard::test {
namespace {

constinit thread_local FailingCall *activeFailure = nullptr;

}  // namespace

FailingCall::FailingCall(const char *function, int error, int n)
    : function_(function), error_(error), left_(n) {
    activeFailure = this;
}

FailingCall::~FailingCall() {
    activeFailure = nullptr;
}

bool strikes(const char *function) {
    FailingCall *const failure = activeFailure;
    if (failure == nullptr || std::strcmp(failure->function_, function) != 0 ||
        failure->left_ == 0 || --failure->left_ > 0) {
        return false;
    }
    failure->happened_ = true;
    errno = failure->error_;
    return true;
}

}  // namespace lanyard::test
