// Attributes in words: names of the library's dictionary, units, vendors' attributes.
#ifndef LANYARDCTL_ATTRIBUTES_H
#define LANYARDCTL_ATTRIBUTES_H

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "radius_packet.h"
#include "report.h"
#include "table.h"

namespace lanyardctl {

// One attribute, or one attribute of a vendor.
struct ShownAttribute {
    std::string name;
    std::string value;  // for people, with its unit
    Json json;
};

// All attributes of a packet in their order. Passwords and keys are not shown, only how long they are.
std::vector<ShownAttribute> shownAttributes(const std::vector<RawAttribute> &attributes);

// Name and value in columns, each line after `indent`; "" for none.
std::string asTable(const std::vector<ShownAttribute> &attributes, const std::string &indent);
Json asJson(const std::vector<ShownAttribute> &attributes);

// A time in seconds since 1970: "2026-11-22T09:00:00Z".
std::string asTime(int64_t seconds);

// Bytes as hexadecimal digits.
std::string asHex(View bytes);

}  // namespace lanyardctl

#endif
