// The key-information block: what an authenticator needs of an Access-Accept beside the verdict
// (RFC 2548 sections 2.4.2 and 2.4.3, RFC 3580 section 3.17).
#include <cstring>
#include <span>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/eap.h>
#include <lanyard/radius/engine.h>

#include "base/partition.h"
#include "base/wire.h"
#include "client/vendor.h"
#include "relay/element.h"

namespace lanyard {
namespace {

constexpr uint16_t kSessionElementSize = 6;
constexpr uint32_t kRadiusRequest = 1;  // Termination-Action, RFC 2865 section 5.29

// A decrypted key behind its length byte.
class Key {
  public:
    // Takes the key of a Vendor-Specific pair if it holds one of that type. One whose length byte
    // claims more than there is counts as none.
    void look(const RadPair &pair, int vendorType) {
        SubAttribute found;
        if (copySubAttribute(pair, vendorType, found) != 0) {
            return;
        }
        const auto bytes = found.bytes();
        if (!bytes.empty() && size_t{bytes[0]} + 1 <= bytes.size()) {
            bytes_ = std::move(found.data);
        }
    }

    // Bytes of the element; 0 for no key.
    uint16_t elementSize() const {
        return bytes_ ? static_cast<uint16_t>(bytes_[0] + 1 + kElementHeaderSize) : uint16_t{0};
    }

    void write(ByteWriter &writer, uint8_t elementType) const {
        if (bytes_) {
            writer.u8(elementType);
            writer.u8(static_cast<uint8_t>(elementSize()));
            writer.bytes({bytes_.get(), size_t{bytes_[0]} + 1});
        }
    }

  private:
    SecretBytes bytes_;
};

uint8_t sessionElementType(RadPair *reply, int radiusCode) {
    if (radiusCode == RAD_CODE_ACCESS_CHALLENGE) {
        return RAD_EAP_SESSION_CHALLENGE;
    }
    const RadPair *action = radPairGet(reply, RAD_ATTR_TERMINATION_ACTION);
    return action && action->numValue == kRadiusRequest ? RAD_EAP_SESSION_REAUTH
                                                        : RAD_EAP_SESSION_TERMINATE;
}

}  // namespace
}  // namespace lanyard

using namespace lanyard;

int radEapKeyInfoBuild(RadPair *reply, uint8_t **outBlock, uint32_t *outLen, int radiusCode) {
    if (!outBlock || !outLen) {
        return -1;
    }
    *outBlock = nullptr;
    *outLen = 0;

    const RadPair *session = radPairGet(reply, RAD_ATTR_SESSION_TIMEOUT);
    Key recvKey;
    Key sendKey;
    for (RadPair *pair = radPairGet(reply, RAD_ATTR_VENDOR_SPECIFIC); pair;
         pair = radPairGet(radPairNext(pair), RAD_ATTR_VENDOR_SPECIFIC)) {
        recvKey.look(*pair, RAD_MS_MPPE_RECV_KEY);
        sendKey.look(*pair, RAD_MS_MPPE_SEND_KEY);
    }
    const auto total =
        static_cast<uint16_t>(kBlockHeaderSize + (session ? kSessionElementSize : 0) +
                              recvKey.elementSize() + sendKey.elementSize());
    if (total == kBlockHeaderSize) {
        return 0;
    }
    auto block = allocateSecret(total);
    if (!block) {
        return -1;
    }
    ByteWriter writer({block.get(), total});
    writer.u16(total);
    if (session) {
        writer.u8(sessionElementType(reply, radiusCode));
        writer.u8(kSessionElementSize);
        writer.u32(session->numValue);
    }
    recvKey.write(writer, RAD_EAP_KEY_RECV);
    sendKey.write(writer, RAD_EAP_KEY_SEND);
    *outBlock = block.release();
    *outLen = total;
    return 0;
}
