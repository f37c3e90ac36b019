// Vendor-Specific attributes of Microsoft (RFC 2548): one sub-attribute in each.
#include "client/vendor.h"

#include <cstring>
#include <span>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/engine.h>
#include <palcore.h>

#include "base/log.h"
#include "base/partition.h"
#include "base/wire.h"
#include "client/md5.h"

namespace lanyard {
namespace {

constexpr size_t kSaltSize = 2;

// A Vendor-Specific value whose vendor length agrees with its size.
struct VendorValue {
    uint32_t vendor;
    uint8_t type;
    std::span<const uint8_t> data;
};

bool parseVendorValue(std::span<const uint8_t> value, VendorValue &parsed) {
    ByteReader reader(value);
    parsed.vendor = reader.u32();
    parsed.type = reader.u8();
    const uint8_t vendorLength = reader.u8();
    parsed.data = reader.rest();
    return reader.ok() && vendorLength + kVendorIdSize == value.size();
}

// Decrypts an MS-MPPE key (RFC 2548 section 2.4.2) into `work`, which has the size of `data`.
int decryptKey(std::span<const uint8_t> data, const char *secret, const uint8_t *requestAuth,
               uint8_t *work) {
    if (!requestAuth || data.size() < kSaltSize || (data[0] & 0x80) == 0) {
        return -1;
    }
    const auto salt = data.first(kSaltSize);
    const auto encrypted = data.subspan(kSaltSize);
    if (encrypted.empty() || encrypted.size() % kHidingBlockSize != 0) {
        radLogAs("radExtractMppeKey", kLogError, "radExtractMppeKey: Invalid MS-MPPE-Key Length\n");
        return -1;
    }
    const auto length = static_cast<int>(encrypted.size());
    const int status =
        radMd5Crypt(secret, requestAuth, salt.data(), kSaltSize, encrypted.data(), length, work, 1);
    if (status == 0) {
        palModuleDebugHex(kModuleLibrary, kLogDump, "MS-MPPE-Key", work, length);
    }
    return status;
}

}  // namespace

int copySubAttribute(const RadPair &pair, int type, SubAttribute &copy) {
    uint8_t *data = nullptr;
    const int status = radVendorAttrGet(&pair, RAD_VENDOR_MICROSOFT, type, &data);
    if (status == 0) {
        const size_t size = pair.numValue - kVendorHeaderSize;
        copy = {.data = SecretBytes(data, WipingDeleter{size}), .size = size};
    }
    return status;
}

}  // namespace lanyard

using namespace lanyard;

uint32_t venID(uint8_t *buf, uint32_t id) {
    if (!buf) {
        return 0;
    }
    if (id == 0) {
        return ByteReader({buf, kVendorIdSize}).u32();
    }
    ByteWriter({buf, kVendorIdSize}).u32(id);
    return id;
}

int radVendorMessage(uint8_t *value, int len, const char *secret, const uint8_t *requestAuth) {
    if (!value) {
        return -1;
    }
    VendorValue vendorValue{};
    if (len < 0 || !parseVendorValue({value, static_cast<size_t>(len)}, vendorValue)) {
        radLog(kLogError, "radVendorMessage: Invalid Length in Vendor Message\n");
        return -1;
    }
    if (vendorValue.vendor != RAD_VENDOR_MICROSOFT) {
        radLog(kLogError, "radVendorMessage: Unknown Vendor ID received:%d\n",
               static_cast<int>(vendorValue.vendor));
        return 0;
    }
    if (vendorValue.type != RAD_MS_MPPE_SEND_KEY && vendorValue.type != RAD_MS_MPPE_RECV_KEY) {
        return 0;
    }
    const auto work = allocateSecret(vendorValue.data.size());
    if (!work) {
        return -1;
    }
    const int status = decryptKey(vendorValue.data, secret, requestAuth, work.get());
    if (status == 0) {
        // The key moves to where the salt was; the last two bytes are what the work buffer held
        // there.
        std::memcpy(value + kVendorHeaderSize, work.get(), vendorValue.data.size());
    }
    return status;
}

int radVendorAttrGet(const RadPair *pair, uint32_t vendorId, int vendorType, uint8_t **data) {
    if (!pair || !data) {
        return -1;
    }
    *data = nullptr;
    const std::span bytes(reinterpret_cast<const uint8_t *>(pair->strValue),
                          sizeof(pair->strValue));
    VendorValue vendorValue{};
    if (pair->numValue > RAD_VALUE_MAX ||
        !parseVendorValue(bytes.first(pair->numValue), vendorValue)) {
        radLog(kLogError, "radVendorAttrGet: Invalid Length in Vendor Message\n");
        return -1;
    }
    if (vendorValue.vendor != vendorId) {
        return -1;
    }
    std::span<const uint8_t> wanted = vendorValue.data;
    if (vendorId != RAD_VENDOR_MICROSOFT) {
        radLog(kLogError, "radVendorAttrGet: Unknown Vendor ID:%d\n", static_cast<int>(vendorId));
        wanted = bytes.first(pair->numValue).subspan(kVendorIdSize);
    } else if (vendorValue.type != vendorType) {
        return -1;
    }
    auto copy = allocateBytes(wanted.size());
    if (!copy) {
        return -1;
    }
    std::memcpy(copy.get(), wanted.data(), wanted.size());
    *data = copy.release();
    return 0;
}

int radVendorMessagePack(uint8_t *buf, uint32_t vendorId, int vendorType, const uint8_t *data,
                         int dataLen) {
    if (!buf || !data || dataLen < 0) {
        return -1;
    }
    const std::span source(data, static_cast<size_t>(dataLen));
    ByteWriter writer({buf, kVendorHeaderSize + source.size()});
    writer.u32(vendorId);
    if (vendorId != RAD_VENDOR_MICROSOFT) {
        radLog(kLogError, "radVendorMessagePack: Unknown Vendor ID:%d\n",
               static_cast<int>(vendorId));
        writer.bytes(source);
        return -1;
    }
    const auto vendorLength = static_cast<uint8_t>(source.size() + 2);
    writer.u8(static_cast<uint8_t>(vendorType));
    writer.u8(vendorLength);
    writer.bytes(source);
    return vendorLength + static_cast<int>(kVendorIdSize);
}
