// Decodes the attributes of a received packet into a pair list (RFC 2865 section 5).
#include <algorithm>
#include <cstring>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/dict.h>

#include "attr/attribute.h"
#include "attr/pair.h"
#include "base/log.h"
#include "base/wire.h"

namespace lanyard {
namespace {

constexpr const char *kTag = "radPairGen";

bool isKnownType(const RadDictAttr &attribute) {
    return attribute.type >= RAD_TYPE_STRING && attribute.type <= RAD_TYPE_DATE;
}

// A string attribute. Given: the value of an empty one is the text that follows it, to the next NUL
// or the end of the packet.
PartitionPtr<RadPair> stringPair(const RadDictAttr &attribute, std::span<const uint8_t> value,
                                 std::span<const uint8_t> following) {
    if (value.empty()) {
        value = following.first(static_cast<size_t>(
            std::distance(following.begin(), std::find(following.begin(), following.end(), 0))));
    }
    return value.empty() ? newPair(attribute, "", 0)
                         : newPair(attribute, value.data(), static_cast<int>(value.size()));
}

// Decodes the next attribute. One that runs past the end of the packet is logged like any other, but
// not decoded; the caller sees that the reader failed.
bool decodeAttribute(ByteReader &reader, PairAppender &list) {
    const uint8_t type = reader.u8();
    const uint8_t length = reader.u8();
    if (!reader.ok()) {
        return true;
    }
    if (length < kAttributeHeaderSize) {
        radLogAs(kTag, kLogError, "radPairGen: Attribute(%d) has invalid length\n", type);
        return false;
    }
    const size_t size = length - kAttributeHeaderSize;
    const auto value = reader.take(size);
    const RadDictAttr *attribute = radDictGetAttr(type);
    if (!attribute) {
        radLogAs(kTag, kLogWarning, "radPairGen: received unknown attribute %d of length %d\n",
                 type, static_cast<int>(size));
        return true;
    }
    radLogAs(kTag, kLogTrace, "Receiving attribute: %s\n", attribute->name);
    if (!isKnownType(*attribute)) {
        radLogAs(kTag, kLogWarning, "radPairGen: %s has unknown type\n", attribute->name);
        return true;
    }
    if (attribute->type == RAD_TYPE_STRING) {
        return !reader.ok() || list.append(stringPair(*attribute, value, reader.rest()));
    }
    if (size != kNumberSize) {
        radLogAs(kTag, kLogError, "radPairGen: received attrbute %d with invalid length %d\n", type,
                 static_cast<int>(size));
        return false;
    }
    const uint32_t number = ByteReader(value).u32();
    return !reader.ok() || list.append(newPair(*attribute, &number, kNumberSize));
}

// What radPairLocate() checks of each attribute.
bool isPlausible(uint8_t type, uint8_t length) {
    constexpr const char *kLocateTag = "radPairLocate";
    if (length < kAttributeHeaderSize) {
        radLogAs(kLocateTag, kLogError, "radPairLocate: Attribute(%d) has invalid length\n", type);
        return false;
    }
    const size_t size = length - kAttributeHeaderSize;
    const RadDictAttr *attribute = radDictGetAttr(type);
    if (!attribute) {
        radLogAs(kLocateTag, kLogWarning, "radPairLocate: unknown attribute %ld of length %d\n",
                 static_cast<long>(type), static_cast<int>(size));
    } else if (!isKnownType(*attribute)) {
        radLogAs(kLocateTag, kLogWarning, "radPairLocate: %s has unknown type\n", attribute->name);
    } else if (attribute->type != RAD_TYPE_STRING && size != kNumberSize) {
        radLogAs(kLocateTag, kLogError, "radPairLocate: attribute %ld with invalid length %d\n",
                 static_cast<long>(type), static_cast<int>(size));
        return false;
    }
    return true;
}

}  // namespace

void logLengthMismatch() {
    radLogAs(kTag, kLogError,
             "radPairGen: Length in packet header does not match total length of attributes\n");
}

bool decodeAttributes(std::span<const uint8_t> attributes, RadPair **list) {
    PairAppender appender(list);
    ByteReader reader(attributes);
    bool decoded = true;
    while (decoded && reader.left() > 0) {
        decoded = decodeAttribute(reader, appender);
    }
    if (decoded && reader.ok()) {
        return true;
    }
    if (decoded) {
        logLengthMismatch();
    }
    radPairListFree(*list);
    *list = nullptr;
    return false;
}

}  // namespace lanyard

using namespace lanyard;

const uint8_t *radPairLocate(const uint8_t *attrs, int len, int attrNum) {
    if (!attrs || len < 0) {
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
