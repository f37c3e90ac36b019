#include "tests/support/failing_call.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace lanyard::test {
namespace {

constinit thread_local FailingCall *activeFailure = nullptr;
constinit thread_local CalledFunctions *activeRecord = nullptr;

}  // namespace

FailingCall::FailingCall(const char *function, int error, int n)
    : function_(function), error_(error), left_(n) {
    activeFailure = this;
}

FailingCall::~FailingCall() {
    activeFailure = nullptr;
}

CalledFunctions::CalledFunctions() {
    activeRecord = this;
}

CalledFunctions::~CalledFunctions() {
    activeRecord = nullptr;
}

void CalledFunctions::add(const char *function) {
    const auto known = names();
    const bool isKnown = std::any_of(known.begin(), known.end(), [function](const char *name) {
        return std::strcmp(name, function) == 0;
    });
    if (!isKnown && count_ < names_.size()) {
        names_[count_++] = function;
    }
}

bool hasStruck() {
    return activeFailure != nullptr && activeFailure->happened();
}

bool strikes(const char *function) {
    if (activeRecord != nullptr) {
        activeRecord->add(function);
    }
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
