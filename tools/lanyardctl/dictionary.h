// Looks things up in the library's dictionary by their names: it finds numbers alone.
#ifndef LANYARDCTL_DICTIONARY_H
#define LANYARDCTL_DICTIONARY_H

#include <algorithm>
#include <string>
#include <vector>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/dict.h>

namespace lanyardctl {

// The largest number of an attribute.
inline constexpr int kAttributeMax = 255;

inline std::vector<const RadDictAttr *> allAttributes() {
    std::vector<const RadDictAttr *> attributes;
    for (int number = 0; number <= kAttributeMax; ++number) {
        if (const RadDictAttr *attribute = radDictGetAttr(number)) {
            attributes.push_back(attribute);
        }
    }
    return attributes;
}

// An attribute by its name, or by its number in digits; null when there is none.
inline const RadDictAttr *findAttribute(const std::string &name) {
    const std::vector<const RadDictAttr *> all = allAttributes();
    const auto found = std::find_if(all.begin(), all.end(), [&name](const RadDictAttr *attribute) {
        return name == attribute->name || name == std::to_string(attribute->attrNum);
    });
    return found == all.end() ? nullptr : *found;
}

// The values of an attribute, or the attributes of a vendor.
inline std::vector<const RadDictValue *> valuesOf(const char *name) {
    constexpr int kValueMax = 0xfffff;  // numbers of vendors need five digits
    std::vector<const RadDictValue *> values;
    for (int number = 0; number <= kValueMax; ++number) {
        if (const RadDictValue *value = radDictGetVal(number, name)) {
            values.push_back(value);
        }
    }
    return values;
}

// Vendors are values of Vendor-Specific.
inline std::vector<const RadDictValue *> allVendors() {
    const RadDictAttr *ofVendors = radDictGetAttr(RAD_ATTR_VENDOR_SPECIFIC);
    return ofVendors ? valuesOf(ofVendors->name) : std::vector<const RadDictValue *>();
}

}  // namespace lanyardctl

#endif
