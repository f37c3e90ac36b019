// Vendor-Specific attributes of Microsoft, inside of the library (RFC 2865 section 5.26, RFC 2548).
#ifndef LANYARD_CLIENT_VENDOR_H
#define LANYARD_CLIENT_VENDOR_H

#include <cstddef>
#include <cstdint>
#include <span>

#include <lanyard/radius/attr.h>

#include "base/partition.h"

namespace lanyard {

constexpr size_t kVendorIdSize = 4;
constexpr size_t kVendorHeaderSize = kVendorIdSize + 2;  // and vendor type, vendor length

// A copy of a sub-attribute's data, which may be a key.
struct SubAttribute {
    SecretBytes data;
    size_t size = 0;

    std::span<const uint8_t> bytes() const { return {data.get(), size}; }
};

// radVendorAttrGet() for Microsoft, with an owner. `copy` is left alone unless the result is 0.
int copySubAttribute(const RadPair &pair, int type, SubAttribute &copy);

}  // namespace lanyard

#endif
