// What the tests of attributes share.
#ifndef LANYARD_TESTS_UNIT_ATTR_ATTR_TEST_H
#define LANYARD_TESTS_UNIT_ATTR_ATTR_TEST_H

#include <algorithm>
#include <gtest/gtest.h>
#include <span>
#include <vector>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/dict.h>

#include "tests/support/bytes.h"
#include "tests/support/configured_library.h"
#include "tests/support/log_recorder.h"
#include "tests/support/pair_list.h"
#include "tests/support/radius_wire.h"

namespace lanyard::test {

// A value type that no dictionary file can name.
inline constexpr int32_t kUnknownType = 7;

// The library is started with the built-in dictionary; at the end no block may be left over.
class AttrTest : public testing::Test {
  protected:
    // Gives an attribute of the dictionary a type that it cannot have been given by its definition.
    static void makeTypeUnknown(int32_t attrNum) {
        const RadDictAttr *attribute = radDictGetAttr(attrNum);
        ASSERT_NE(nullptr, attribute);
        const_cast<RadDictAttr *>(attribute)->type = kUnknownType;
    }

    ConfiguredLibrary library_;
    LogRecorder log_;
};

// The bytes of a string pair's value, as many as the pair holds at most.
inline Bytes valueOf(const RadPair &pair) {
    const std::span value(pair.strValue);
    const auto bytes = value.first(std::min<size_t>(pair.numValue, RAD_VALUE_MAX));
    return {bytes.begin(), bytes.end()};
}

// The pairs of a list as they would stand on the wire.
inline std::vector<Attribute> attributesOf(const RadPair *list) {
    std::vector<Attribute> attributes;
    for (const RadPair *pair = list; pair != nullptr; pair = pair->next) {
        Attribute attribute;
        attribute.type = static_cast<uint8_t>(pair->attrNum);
        if (pair->type == RAD_TYPE_STRING) {
            attribute.value = valueOf(*pair);
        } else {
            const uint32_t number = pair->numValue;
            attribute.value = {static_cast<uint8_t>(number >> 24),
                               static_cast<uint8_t>(number >> 16),
                               static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)};
        }
        attributes.push_back(attribute);
    }
    return attributes;
}

}  // namespace lanyard::test

#endif
