// The library's own processing of each attribute of a reply.
#include <algorithm>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/engine.h>

#include "attr/attribute.h"
#include "base/log.h"
#include "client/packet.h"

namespace lanyard {
namespace {

void logProcessing(const RadPair &pair) {
    radLogAs("radPairUnpackDefault", kLogTrace, "Processing attribute: %s\n", pair.name);
}

// EAP may not be read from a reply that is not signed (RFC 3579 section 3.2).
int checkEapMessage(const RadPair &pair, RadPair *list) {
    logProcessing(pair);
    logProcessing(pair);  // twice, as log readers know it
    if (!radPairGet(list, RAD_ATTR_MESSAGE_AUTHENTICATOR)) {
        radLogAs("radPairUnpackDefault", kLogError,
                 "radPairUnpackDefault: EAP-Message Attribute received without "
                 "Message-Authenticator\n");
        return -1;
    }
    return 0;
}

}  // namespace
}  // namespace lanyard

using namespace lanyard;

int radPairGen(const RadPacket *packet, RadPair **list) {
    if (!packet || !list) {
        return -1;
    }
    *list = nullptr;
    const auto whole = Packet::ofCaller(const_cast<RadPacket *>(packet));
    if (!whole) {
        logLengthMismatch();
        return -1;
    }
    return decodeAttributes(whole->attributes(), list) ? 0 : -1;
}

int radPairUnpackDefault(RadPair *pair, RadPair *list, RadPacket *reply, RadPacket *request,
                         const char *secret) {
    if (!pair || !list) {
        return -1;
    }
    switch (pair->attrNum) {
        case RAD_ATTR_EAP_MESSAGE:
            return checkEapMessage(*pair, list);
        case RAD_ATTR_MESSAGE_AUTHENTICATOR:
            if (!reply || !secret || !request) {
                return -1;
            }
            logProcessing(*pair);
            return radCheckMsgAuth(reply, secret, request->authenticator);
        case RAD_ATTR_VENDOR_SPECIFIC:
            if (!secret || !request) {
                return -1;
            }
            logProcessing(*pair);
            // A cut text records a length beyond its bytes; only what the pair holds is looked at.
            return radVendorMessage(static_cast<uint8_t *>(radPairValue(pair)),
                                    std::min(radPairValueLen(pair), RAD_VALUE_MAX), secret,
                                    request->authenticator);
        default:
            return 0;
    }
}
