// From the attributes of a received packet to a pair list (RFC 2865 section 5).
#include <algorithm>
#include <cstring>
#include <span>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/dict.h>

#include "base/log.h"
#include "base/wire.h"

namespace lanyard {
namespace {

constexpr uint8_t kAttributeHeaderSize = 2;
constexpr int kHeaderSize = sizeof(RadPacket);
constexpr uint8_t kNumberSize = 4;

constexpr const char *kTag = "radPairGen";

bool isKnownType(const RadDictAttr &attribute) {
    return attribute.type >= RAD_TYPE_STRING && attribute.type <= RAD_TYPE_DATE;
}

// A string attribute. An empty one is text that starts where its value would: it runs to the next
// NUL of the packet, or to the packet's end.
bool addString(RadPair **list, uint8_t type, std::span<const uint8_t> value,
               std::span<const uint8_t> behind) {
    if (value.empty()) {
        const void *end = behind.empty() ? nullptr : std::memchr(behind.data(), 0, behind.size());
        value = end ? behind.first(
                          static_cast<size_t>(static_cast<const uint8_t *>(end) - behind.data()))
                    : behind;
    }
    return value.empty() ? radPairAdd(list, type, "", 0)
                         : radPairAdd(list, type, value.data(), static_cast<int>(value.size()));
}

// Decodes the next attribute. An attribute that runs past the end of the packet is announced like
// any other, but not decoded: the caller finds the reader failed.
bool decodeAttribute(ByteReader &reader, RadPair **list) {
    const uint8_t type = reader.u8();
    const uint8_t length = reader.u8();
    if (!reader.ok()) {
        return true;
    }
    if (length < kAttributeHeaderSize) {
        radLogAs(kTag, kLogError, "radPairGen: Attribute(%d) has invalid length\n", type);
        return false;
    }
    const int valueLength = length - kAttributeHeaderSize;
    const auto value = reader.take(static_cast<size_t>(valueLength));
    const RadDictAttr *attribute = radDictGetAttr(type);
    if (!attribute) {
        radLogAs(kTag, kLogWarning, "radPairGen: received unknown attribute %d of length %d\n",
                 type, valueLength);
        return true;
    }
    radLogAs(kTag, kLogTrace, "Receiving attribute: %s\n", attribute->name);
    if (!isKnownType(*attribute)) {
        radLogAs(kTag, kLogWarning, "radPairGen: %s has unknown type\n", attribute->name);
        return true;
    }
    if (attribute->type == RAD_TYPE_STRING) {
        return !reader.ok() || addString(list, type, value, reader.rest());
    }
    if (valueLength != kNumberSize) {
        radLogAs(kTag, kLogError, "radPairGen: received attrbute %d with invalid length %d\n", type,
                 valueLength);
        return false;
    }
    const uint32_t number = ByteReader(value).u32();
    return !reader.ok() || radPairAdd(list, type, &number, kNumberSize);
}

bool decodeAttributes(const RadPacket &packet, RadPair **list) {
    const int length = packet.length[0] << 8 | packet.length[1];
    bool complete = length >= kHeaderSize;
    if (complete) {
        const auto *bytes = reinterpret_cast<const uint8_t *>(&packet);
        ByteReader reader(std::span(bytes, static_cast<size_t>(length)).subspan(kHeaderSize));
        while (reader.left() > 0) {
            if (!decodeAttribute(reader, list)) {
                return false;
            }
        }
        complete = reader.ok();
    }
    if (!complete) {
        radLogAs(kTag, kLogError,
                 "radPairGen: Length in packet header does not match total length of attributes\n");
    }
    return complete;
}

// What radPairLocate() checks of an attribute that it passes or finds.
bool isPlausible(uint8_t type, uint8_t length) {
    constexpr const char *kLocateTag = "radPairLocate";
    if (length < kAttributeHeaderSize) {
        radLogAs(kLocateTag, kLogError, "radPairLocate: Attribute(%d) has invalid length\n", type);
        return false;
    }
    const int valueLength = length - kAttributeHeaderSize;
    const RadDictAttr *attribute = radDictGetAttr(type);
    if (!attribute) {
        radLogAs(kLocateTag, kLogWarning, "radPairLocate: unknown attribute %ld of length %d\n",
                 static_cast<long>(type), valueLength);
    } else if (!isKnownType(*attribute)) {
        radLogAs(kLocateTag, kLogWarning, "radPairLocate: %s has unknown type\n", attribute->name);
    } else if (attribute->type != RAD_TYPE_STRING && valueLength != kNumberSize) {
        radLogAs(kLocateTag, kLogError, "radPairLocate: attribute %ld with invalid length %d\n",
                 static_cast<long>(type), valueLength);
        return false;
    }
    return true;
}

}  // namespace
}  // namespace lanyard

using namespace lanyard;

int radPairGen(const RadPacket *packet, RadPair **list) {
    if (!packet || !list) {
        return -1;
    }
    *list = nullptr;
    if (!decodeAttributes(*packet, list)) {
        radPairListFree(*list);
        *list = nullptr;
        return -1;
    }
    return 0;
}

const uint8_t *radPairLocate(const uint8_t *attrs, int len, int attrNum) {
    if (!attrs || len < kAttributeHeaderSize) {
        return nullptr;
    }
    std::span<const uint8_t> area(attrs, static_cast<size_t>(len));
    while (area.size() >= kAttributeHeaderSize) {
        const uint8_t type = area[0];
        const uint8_t length = area[1];
        if (!isPlausible(type, length)) {
            return nullptr;
        }
        if (type == attrNum) {
            return area.data();
        }
        area = area.subspan(std::min<size_t>(length, area.size()));
    }
    return nullptr;
}
