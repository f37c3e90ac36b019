// What the tests of pairs and of lists of them share.
#ifndef LANYARD_TESTS_UNIT_ATTR_PAIR_FIXTURE_H
#define LANYARD_TESTS_UNIT_ATTR_PAIR_FIXTURE_H

#include <algorithm>

#include <lanyard/radius/attr.h>

#include "tests/unit/attr/attr_test.h"

namespace lanyard::test {

inline constexpr const char *kBadLength = "error radPairAssign: bad attribute value length";

class PairTest : public AttrTest {
  protected:
    static PairList makePair(int attrNum, const char *text) {
        return PairList(radPairNew(attrNum, text, 0));
    }

    // Three pairs: User-Name, State, State.
    static RadPair *makeList() {
        RadPair *list = nullptr;
        EXPECT_NE(nullptr, radPairAdd(&list, RAD_ATTR_USER_NAME, "nemo", 0));
        EXPECT_NE(nullptr, radPairAdd(&list, RAD_ATTR_STATE, "first", 0));
        EXPECT_NE(nullptr, radPairAdd(&list, RAD_ATTR_STATE, "second", 0));
        return list;
    }
};

inline Bytes bytesOf(const RadPair &pair) {
    const auto *bytes = reinterpret_cast<const uint8_t *>(&pair);
    return {bytes, bytes + sizeof(pair)};
}

inline Bytes counting(size_t length) {
    Bytes bytes(length);
    std::generate(bytes.begin(), bytes.end(), [n = uint8_t{0}]() mutable { return n++; });
    return bytes;
}

}  // namespace lanyard::test

#endif
