// What MS-CHAP and MS-CHAPv2 share.
#include "login/mschap_request.h"

#include <lanyard/radius/attr.h>
#include <lanyard/radius/methods.h>

#include "base/log.h"
#include "client/last_error.h"

namespace lanyard {
namespace {

bool addMicrosoft(PairList &request, int vendorType, std::span<const uint8_t> data) {
    std::array<uint8_t, RAD_VALUE_MAX> value{};
    const int length = radVendorMessagePack(value.data(), RAD_VENDOR_MICROSOFT, vendorType,
                                            data.data(), static_cast<int>(data.size()));
    return length > 0 && request.addBytes(RAD_ATTR_VENDOR_SPECIFIC, value.data(), length);
}

}  // namespace

Reporting printingReport(const char *function) {
    return {.function = function,
            .refusalLevel = kLogError,
            .success = Sink::kOutput,
            .failureLevel = kLogError,
            .heading = Sink::kTrace};
}

Reporting quietReport(const char *function) {
    return {.function = function,
            .refusalLevel = kLogError,
            .success = Sink::kTrace,
            .failureLevel = kLogError,
            .heading = Sink::kTrace};
}

bool startMschapRequest(PairList &request, const char *userName,
                        std::span<const uint8_t> challenge) {
    forgetOutcomes();
    return isWithin(userName, RAD_USER_NAME_MAX) && request.addText(RAD_ATTR_USER_NAME, userName) &&
           addMicrosoft(request, RAD_MS_CHAP_CHALLENGE, challenge);
}

bool finishMschapRequest(PairList &request, int vendorType, const MschapResponse &response) {
    return addMicrosoft(request, vendorType, response) &&
           request.addNumber(RAD_ATTR_SERVICE_TYPE, kAuthenticateOnly);
}

}  // namespace lanyard
