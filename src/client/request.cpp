// Completing and packing a request (RFC 2865 sections 3, 5.4 and 5.32).
#include "client/request.h"

#include <arpa/inet.h>
#include <array>

#include <lanyard/radius/attr.h>
#include <palcore.h>

#include "base/log.h"
#include "client/authenticator.h"
#include "client/resolver.h"

namespace lanyard {
namespace {

// The value with which Message-Authenticator is added; the packer signs it.
constexpr std::array<uint8_t, RAD_DIGEST_SIZE> radMsgAuthPlaceholder{};

// The caller's list while it is completed. The caller holds it by its first pair, so that record
// stays where it is: when the first pair is deleted, the next one moves into its record.
class RequestPairs {
  public:
    explicit RequestPairs(RadPair *head) : head_(head) {}

    void remove(int attrNum) {
        if (empty_) {
            return;
        }
        if (head_->attrNum != attrNum) {
            radPairDelete(&head_->next, attrNum);
        } else if (head_->next) {
            moveToHead(head_->next);
        } else {
            empty_ = true;
        }
    }

    bool add(int attrNum, const void *value, int length) {
        if (!empty_) {
            return radPairAdd(&head_, attrNum, value, length) != nullptr;
        }
        RadPair *pair = radPairNew(attrNum, value, length);
        if (!pair) {
            return false;
        }
        moveToHead(pair);
        empty_ = false;
        return true;
    }

  private:
    void moveToHead(RadPair *pair) {
        *head_ = *pair;
        pair->next = nullptr;
        radPairListFree(pair);
    }

    RadPair *head_;
    bool empty_ = false;
};

}  // namespace

bool addNasIdentity(RadPair *list, const char *nasIdentifier, const uint32_t *knownAddress,
                    Outcome &outcome) {
    failAt(outcome, RAD_STEP_PREPARE, RAD_REASON_PACK);
    RequestPairs pairs(list);
    pairs.remove(RAD_ATTR_NAS_IDENTIFIER);
    pairs.remove(RAD_ATTR_NAS_IP_ADDRESS);
    pairs.remove(RAD_ATTR_MESSAGE_AUTHENTICATOR);
    if (nasIdentifier) {
        return pairs.add(RAD_ATTR_NAS_IDENTIFIER, nasIdentifier, 0);
    }
    const uint32_t address = knownAddress ? *knownAddress : ownAddress();
    if (address == 0 || address == INADDR_NONE) {
        outcome.reason = RAD_REASON_NO_OWN_ADDRESS;
        return false;
    }
    const uint32_t hostOrder = ntohl(address);
    return pairs.add(RAD_ATTR_NAS_IP_ADDRESS, &hostOrder, sizeof(hostOrder));
}

bool addSignaturePlace(RadPair *list, int code) {
    return code == RAD_CODE_ACCOUNTING_REQUEST ||
           RequestPairs(list).add(RAD_ATTR_MESSAGE_AUTHENTICATOR, radMsgAuthPlaceholder.data(),
                                  static_cast<int>(radMsgAuthPlaceholder.size()));
}

OwnedPacket packRequest(const RadRequestDesc &desc, const RadPair *pairs, int &status,
                        Outcome &outcome) {
    failAt(outcome, RAD_STEP_PREPARE, RAD_REASON_PACK);
    uint32_t attributesLength = 0;
    status = radPackList(pairs, RAD_PACK_MEASURE, &attributesLength);
    if (status != 0) {
        return {};
    }
    status = -1;
    const uint32_t length = attributesLength + RAD_HEADER_SIZE;
    if (length > RAD_PACKET_MAX) {
        radLogAs("radSendtoServer", kLogError,
                 "radSendtoServer: Send Packet too Large: %d, limit: %d\n",
                 static_cast<int>(length), RAD_PACKET_MAX);
        outcome.reason = RAD_REASON_TOO_LARGE;
        return {};
    }
    auto bytes = allocateSecret(length);
    if (!bytes) {
        outcome.reason = RAD_REASON_NO_MEMORY;
        return {};
    }
    auto *record = reinterpret_cast<RadPacket *>(bytes.get());
    record->code = desc.code;
    record->identifier = desc.identifier;
    setLengthField(*record, length);
    if (palRandGen(record->authenticator, RAD_DIGEST_SIZE) != 0) {
        outcome.reason = RAD_REASON_NO_RANDOM;
        return {};
    }
    // Before packing: a hook may write to the length field.
    const auto packet = Packet::ofCaller(record);
    status = radPackList(pairs, RAD_PACK, record, desc.secret);
    if (status != 0) {
        return {};
    }
    if (desc.code == RAD_CODE_ACCOUNTING_REQUEST) {
        signAccountingRequest(*packet, desc.secret);
    }
    radLogAs("radSendtoServer", kLogTrace, "Packed Auth. Reqest: code:%d, id:%d, len:%d\n",
             desc.code, desc.identifier, static_cast<int>(length));
    return {.bytes = std::move(bytes), .packet = packet};
}

}  // namespace lanyard
