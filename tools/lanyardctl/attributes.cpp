#include "attributes.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <ctime>
#include <iterator>
#include <optional>
#include <string_view>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/dict.h>

#include "vendors.h"

namespace lanyardctl {

namespace {

struct Unit {
    int number;
    const char *unit;
};
constexpr auto kUnits = std::to_array<Unit>({{12, "octets"},
                                             {27, "s"},
                                             {28, "s"},
                                             {41, "s"},
                                             {42, "octets"},
                                             {43, "octets"},
                                             {46, "s"},
                                             {47, "packets"},
                                             {48, "packets"},
                                             {52, "x 4 GiB"},
                                             {53, "x 4 GiB"},
                                             {62, "ports"},
                                             {75, "tries"},
                                             {85, "s"}});

// Attributes of tunnels begin with a tag (RFC 2868 section 3).
constexpr std::array kTaggedNumbers = {64, 65, 83};
constexpr std::array kTaggedTexts = {66, 67, 81, 82, 90, 91};
constexpr uint8_t kTagMax = 0x1f;
constexpr int kTunnelPassword = 69;

template <typename Numbers>
bool isIn(const Numbers &numbers, int number) {
    return std::find(numbers.begin(), numbers.end(), number) != numbers.end();
}

std::string unitOf(int number) {
    const auto *const found = std::find_if(
        kUnits.begin(), kUnits.end(), [number](const Unit &row) { return row.number == number; });
    return found == kUnits.end() ? "" : found->unit;
}

uint32_t numberOf(View bytes) {
    uint32_t number = 0;
    for (const uint8_t byte : bytes) {
        number = number << 8U | byte;
    }
    return number;
}

std::string asString(View bytes) {
    return {bytes.begin(), bytes.end()};
}

void setText(ShownAttribute &shown, View bytes) {
    if (const std::string text = asString(bytes); text == lanyardctl::shown(text)) {
        shown.value = '"' + text + '"';
        shown.json["value"] = text;
    } else {
        shown.value = "0x" + asHex(bytes);
        shown.json["hex"] = asHex(bytes);
    }
}

void setSecret(ShownAttribute &shown, View bytes) {
    shown.value = "(hidden, " + std::to_string(bytes.size()) + " bytes)";
    shown.json["hidden_bytes"] = bytes.size();
}

void setNumber(ShownAttribute &shown, uint32_t number, const std::string &unit) {
    shown.value = std::to_string(number) + (unit.empty() ? "" : " " + unit);
    shown.json["value"] = number;
    if (!unit.empty()) {
        shown.json["unit"] = unit;
    }
}

void setWord(ShownAttribute &shown, const std::string &word) {
    shown.value = word;
    shown.json["value"] = word;
}

void setAddress(ShownAttribute &shown, View bytes) {
    std::array<char, INET_ADDRSTRLEN> text{};
    inet_ntop(AF_INET, bytes.data(), text.data(), text.size());
    setWord(shown, text.data());
}

void setTag(ShownAttribute &shown, unsigned tag) {
    if (tag != 0) {
        shown.value += ", tag " + std::to_string(tag);
        shown.json["tag"] = tag;
    }
}

// A number of the dictionary's type "integer", which may have a name.
void setInteger(ShownAttribute &shown, const RadDictAttr &known, uint32_t number) {
    const bool isTagged = isIn(kTaggedNumbers, known.attrNum);
    const uint32_t value = isTagged ? number & 0xffffffU : number;
    const RadDictValue *named = radDictGetVal(static_cast<int32_t>(value), known.name);
    setNumber(shown, value, unitOf(known.attrNum));
    if (named) {
        shown.value = std::string(named->valueName) + " (" + shown.value + ")";
        shown.json["name_of_value"] = named->valueName;
    }
    if (isTagged) {
        setTag(shown, number >> 24U);
    }
}

void setValue(ShownAttribute &shown, const RadDictAttr &known, View bytes) {
    if (known.attrNum == RAD_ATTR_USER_PASSWORD || known.attrNum == kTunnelPassword) {
        setSecret(shown, bytes);
    } else if (known.type == RAD_TYPE_STRING && isIn(kTaggedTexts, known.attrNum) &&
               !bytes.empty() && bytes[0] <= kTagMax) {
        setText(shown, bytes.subspan(1));
        setTag(shown, bytes[0]);
    } else if (known.type == RAD_TYPE_STRING) {
        setText(shown, bytes);
    } else if (bytes.size() != sizeof(uint32_t)) {
        setText(shown, bytes);
        shown.value += ", not 4 bytes: the library refuses it";
        shown.json["problem"] = "not 4 bytes";
    } else if (known.type == RAD_TYPE_IPADDR) {
        setAddress(shown, bytes);
    } else if (known.type == RAD_TYPE_DATE) {
        setWord(shown, asTime(numberOf(bytes)));
    } else {
        setInteger(shown, known, numberOf(bytes));
    }
}

ShownAttribute shownPlain(const RawAttribute &attribute) {
    ShownAttribute shown{"Attribute-" + std::to_string(attribute.number), "", Json::object()};
    const RadDictAttr *known = radDictGetAttr(attribute.number);
    if (known) {
        shown.name = known->name;
    }
    shown.json = {{"name", shown.name}, {"number", attribute.number}};
    if (known) {
        setValue(shown, *known, attribute.value);
        return shown;
    }
    if (attribute.number == kTunnelPassword || attribute.number == RAD_ATTR_USER_PASSWORD) {
        setSecret(shown, attribute.value);
    } else {
        setText(shown, attribute.value);
    }
    shown.value += ", not in the dictionary: the library skips it";
    shown.json["problem"] = "not in the dictionary";
    return shown;
}

void setVendorValue(ShownAttribute &shown, const VendorAttribute *known, View data) {
    const Kind kind = known ? known->kind : Kind::kText;
    if (kind == Kind::kSecret) {
        setSecret(shown, data);
    } else if (kind == Kind::kNumber && data.size() == sizeof(uint32_t)) {
        setNumber(shown, numberOf(data), known->unit);
    } else if (kind == Kind::kAddress && data.size() == sizeof(uint32_t)) {
        setAddress(shown, data);
    } else if (kind == Kind::kTextAfterIdentifier && !data.empty()) {
        setText(shown, data.subspan(1));
    } else if (kind == Kind::kBytes) {
        setWord(shown, "0x" + asHex(data));
    } else {
        setText(shown, data);
    }
}

// A vendor is a value of Vendor-Specific in the dictionary.
std::string vendorName(uint32_t vendor) {
    const RadDictAttr *ofVendors = radDictGetAttr(RAD_ATTR_VENDOR_SPECIFIC);
    const RadDictValue *named =
        ofVendors ? radDictGetVal(static_cast<int32_t>(vendor), ofVendors->name) : nullptr;
    const auto *const found = std::find_if(
        kVendors.begin(), kVendors.end(), [vendor](const Vendor &row) { return row.id == vendor; });
    return named                     ? named->valueName
           : found != kVendors.end() ? found->name
                                     : "Vendor-" + std::to_string(vendor);
}

// Its attributes are values of its name.
std::string nameOfVendors(uint32_t vendor, uint8_t number, const VendorAttribute *known) {
    const std::string ofVendor = vendorName(vendor);
    const RadDictValue *named = radDictGetVal(number, ofVendor.c_str());
    return named ? named->valueName : known ? known->name : ofVendor + "-" + std::to_string(number);
}

ShownAttribute shownOfVendor(uint32_t vendor, uint8_t number, View data) {
    const auto *found =
        std::find_if(kVendorAttributes.begin(), kVendorAttributes.end(),
                     [&](const auto &row) { return row.vendor == vendor && row.number == number; });
    const VendorAttribute *known = found == kVendorAttributes.end() ? nullptr : found;
    ShownAttribute shown;
    shown.name = nameOfVendors(vendor, number, known);
    shown.json = {{"name", shown.name},
                  {"number", RAD_ATTR_VENDOR_SPECIFIC},
                  {"vendor", vendor},
                  {"vendor_number", number}};
    setVendorValue(shown, known, data);
    return shown;
}

// The attributes of a vendor in one Vendor-Specific (RFC 2865 section 5.26); none when its value is
// not made of type, length and data.
std::vector<ShownAttribute> shownVendor(View value) {
    std::vector<ShownAttribute> all;
    if (value.size() < sizeof(uint32_t)) {
        return {};
    }
    const uint32_t vendor = numberOf(value.first(sizeof(uint32_t)));
    for (View rest = value.subspan(sizeof(uint32_t)); !rest.empty(); rest = rest.subspan(rest[1])) {
        if (rest.size() < 2 || rest[1] < 2 || rest[1] > rest.size()) {
            return {};
        }
        all.push_back(shownOfVendor(vendor, rest[0], rest.first(rest[1]).subspan(2)));
    }
    return all;
}

}  // namespace

std::string asHex(View bytes) {
    std::string text;
    for (const uint8_t byte : bytes) {
        text += "0123456789abcdef"[byte >> 4U];
        text += "0123456789abcdef"[byte & 15U];
    }
    return text;
}

std::string asTime(int64_t seconds) {
    const auto time = static_cast<time_t>(seconds);
    tm utc{};
    std::array<char, 32> text{};
    gmtime_r(&time, &utc);
    (void)std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text.data();
}

std::vector<ShownAttribute> shownAttributes(const std::vector<RawAttribute> &attributes) {
    std::vector<ShownAttribute> all;
    for (const RawAttribute &attribute : attributes) {
        std::vector<ShownAttribute> vendors;
        if (attribute.number == RAD_ATTR_VENDOR_SPECIFIC) {
            vendors = shownVendor(attribute.value);
        }
        if (vendors.empty()) {
            vendors.push_back(shownPlain(attribute));
        }
        std::move(vendors.begin(), vendors.end(), std::back_inserter(all));
    }
    return all;
}

std::string asTable(const std::vector<ShownAttribute> &attributes, const std::string &indent) {
    std::vector<Line> lines;
    lines.reserve(attributes.size());
    for (const ShownAttribute &attribute : attributes) {
        lines.push_back({indent + attribute.name, shown(attribute.value)});
    }
    return lines.empty() ? "" : asTable(lines);
}

Json asJson(const std::vector<ShownAttribute> &attributes) {
    Json list = Json::array();
    for (const ShownAttribute &attribute : attributes) {
        list.push_back(attribute.json);
    }
    return list;
}

}  // namespace lanyardctl
