// One attribute on the wire: type, length, value (RFC 2865 section 5).
#ifndef LANYARD_ATTR_ATTRIBUTE_H
#define LANYARD_ATTR_ATTRIBUTE_H

#include <cstddef>
#include <cstdint>
#include <span>

#include <lanyard/radius/attr.h>

namespace lanyard {

constexpr size_t kAttributeHeaderSize = 2;
constexpr size_t kAttributeMax = 255;

// Bytes of an integer, address or date.
constexpr size_t kNumberSize = 4;

// Decodes the attributes of a packet into a new list, and logs as radPairGen(). On failure the list is
// empty.
[[nodiscard]] bool decodeAttributes(std::span<const uint8_t> attributes, RadPair **list);

// radPairGen()'s message for attributes that do not add up to the length field.
void logLengthMismatch();

}  // namespace lanyard

#endif
