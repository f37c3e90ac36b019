// What MS-CHAP and MS-CHAPv2 share.
#include "login/mschap_request.h"

#include <cstring>

#include <lanyard/radius/attr.h>

namespace lanyard {

bool addMicrosoft(PairList &request, int vendorType, std::span<const uint8_t> data) {
    std::array<uint8_t, RAD_VALUE_MAX> value{};
    const int length = radVendorMessagePack(value.data(), RAD_VENDOR_MICROSOFT, vendorType,
                                            data.data(), static_cast<int>(data.size()));
    const bool isAdded =
        length > 0 && request.addBytes(RAD_ATTR_VENDOR_SPECIFIC, value.data(), length);
    explicit_bzero(value.data(), value.size());
    return isAdded;
}

}  // namespace lanyard
