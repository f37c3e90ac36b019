// One attribute in an undecoded attribute area.
#include <climits>
#include <optional>
#include <string>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/dict.h>

#include "tests/support/test.h"
#include "tests/unit/attr/attr_test.h"

namespace lanyard::test::locate_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class LocateTest : public AttrTest {
  protected:
    // Where the attribute begins, in an area that can be neither read beyond its ends nor written
    // to.
    static std::optional<size_t> locate(ByteView area, int attrNum) {
        GuardedBuffer buffer(area);
        buffer.makeReadOnly();
        const uint8_t *found =
            radPairLocate(buffer.data(), static_cast<int>(buffer.size()), attrNum);
        if (found == nullptr) {
            return std::nullopt;
        }
        return static_cast<size_t>(found - buffer.data());
    }
};

TEST_F(LocateTest, FindsTheFirstOfANumber) {
    const Bytes area = "01066e656d6f 180401aa 060600000001 180402bb"_hex;
    EXPECT_EQ(0U, locate(area, 1));
    EXPECT_EQ(6U, locate(area, 24));
    EXPECT_EQ(10U, locate(area, 6));
    EXPECT_EQ(std::nullopt, locate(area, 80));
    EXPECT_LOG(log_);
}

TEST_F(LocateTest, NumbersAreComparedWhole) {
    const Bytes area = "01066e656d6f"_hex;
    for (const int attrNum : {257, -255, INT_MIN, INT_MAX, -1}) {
        EXPECT_EQ(std::nullopt, locate(area, attrNum)) << attrNum;
    }
}

TEST_F(LocateTest, AreaOfLessThanAHeaderHoldsNothing) {
    EXPECT_EQ(std::nullopt, locate(""_hex, 80));
    EXPECT_EQ(std::nullopt, locate("50"_hex, 80));
    const GuardedBuffer attribute("5002"_hex);
    for (const int len : {1, 0, -1, -2, -20, -65536, INT_MIN}) {
        EXPECT_EQ(nullptr, radPairLocate(attribute.data(), len, 80)) << len;
    }
    EXPECT_EQ(nullptr, radPairLocate(nullptr, 0, 80));
    EXPECT_LOG(log_);
}

TEST_F(LocateTest, HeaderAtTheVeryEndIsFound) {
    EXPECT_EQ(0U, locate("5002"_hex, 80));
    EXPECT_EQ(3U, locate("180301 5002"_hex, 80));
    EXPECT_LOG(log_);
}

TEST_F(LocateTest, ValueIsNotLookedAt) {
    EXPECT_EQ(0U, locate("5012"_hex, 80));
    EXPECT_EQ(0U, locate("50ff"_hex, 80));
    EXPECT_EQ(3U, locate("180301 0606"_hex, 6));
    EXPECT_LOG(log_);
}

TEST_F(LocateTest, SearchEndsAtTheEndOfTheArea) {
    EXPECT_EQ(std::nullopt, locate("180401aa 50"_hex, 80));
    EXPECT_EQ(std::nullopt, locate("180501aa"_hex, 80));
    EXPECT_EQ(std::nullopt, locate("18ff01aa 5002"_hex, 80));
    EXPECT_LOG(log_);
}

TEST_F(LocateTest, LengthByteBelow2EndsTheSearch) {
    for (const uint8_t length : {uint8_t{0}, uint8_t{1}}) {
        for (const int type : {80, 6, 17, 0, 255}) {
            log_.clear();
            const Bytes attribute = {static_cast<uint8_t>(type), length};
            EXPECT_EQ(std::nullopt,
                      locate(concatenate({"180301"_hex, attribute, "5002"_hex}), type));
            EXPECT_LOG(log_, "error radPairLocate: Attribute(" + std::to_string(type) +
                                 ") has invalid length");
        }
    }
}

TEST_F(LocateTest, NumberOfAnotherLengthEndsTheSearch) {
    ASSERT_EQ(0, radDictAddAttr("Event-Timestamp 55 date"));
    for (const int type : {6, 4, 55}) {
        for (size_t length = 0; length <= 253; ++length) {
            const Bytes area = concatenate(
                {Attributes().add(static_cast<uint8_t>(type), Bytes(length)).bytes(), "5002"_hex});
            log_.clear();
            if (length == 4) {
                EXPECT_EQ(6U, locate(area, 80));
                EXPECT_EQ(0U, locate(area, type));
                EXPECT_LOG(log_);
                continue;
            }
            // Before it is compared, and before anything after it.
            const std::string message = "error radPairLocate: attribute " + std::to_string(type) +
                                        " with invalid length " + std::to_string(length);
            EXPECT_EQ(std::nullopt, locate(area, type));
            EXPECT_EQ(std::nullopt, locate(area, 80));
            EXPECT_LOG(log_, message, message);
        }
    }
}

TEST_F(LocateTest, UnknownAttributesAreReportedAndFound) {
    const Bytes area = "1103aa 0002 ff04bbcc 5002"_hex;
    const std::string first = "warning radPairLocate: unknown attribute 17 of length 1";
    const std::string second = "warning radPairLocate: unknown attribute 0 of length 0";
    const std::string third = "warning radPairLocate: unknown attribute 255 of length 2";
    EXPECT_EQ(0U, locate(area, 17));
    EXPECT_LOG(log_, first);
    log_.clear();
    EXPECT_EQ(3U, locate(area, 0));
    EXPECT_LOG(log_, first, second);
    log_.clear();
    EXPECT_EQ(5U, locate(area, 255));
    EXPECT_LOG(log_, first, second, third);
    log_.clear();
    EXPECT_EQ(9U, locate(area, 80));
    EXPECT_LOG(log_, first, second, third);
}

TEST_F(LocateTest, AttributesOfUnknownTypeAreReportedAndFound) {
    makeTypeUnknown(RAD_ATTR_STATE);
    const std::string message = "warning radPairLocate: State has unknown type";
    const Bytes area = "180301 5002"_hex;
    EXPECT_EQ(0U, locate(area, 24));
    EXPECT_EQ(3U, locate(area, 80));
    EXPECT_LOG(log_, message, message);
}

TEST_F(LocateTest, WorksWithoutADictionary) {
    ASSERT_EQ(0, radDictUnload());
    log_.clear();
    EXPECT_EQ(5U, locate("0605010203 50020000"_hex, 80));
    EXPECT_LOG(log_, "warning radPairLocate: unknown attribute 6 of length 3",
               "warning radPairLocate: unknown attribute 80 of length 0");
}

// What is to be found where, worked out on its own, with the problem that ends the search.
struct Expectation {
    std::optional<size_t> found;
    std::string problem;
};

Expectation expectationFor(ByteView area, int attrNum) {
    size_t at = 0;
    while (at + 2 <= area.size()) {
        const uint8_t type = area[at];
        const size_t length = area[at + 1];
        const RadDictAttr *attribute = radDictGetAttr(type);
        if (length < 2) {
            return {std::nullopt, "error radPairLocate: Attribute(" + std::to_string(type) +
                                      ") has invalid length"};
        }
        if (attribute != nullptr && attribute->type != RAD_TYPE_STRING && length != 6) {
            return {std::nullopt, "error radPairLocate: attribute " + std::to_string(type) +
                                      " with invalid length " + std::to_string(length - 2)};
        }
        if (type == attrNum) {
            return {at, ""};
        }
        at += length;
    }
    return {};
}

class HostileAreaTest : public LocateTest {
  protected:
    void expectAsWorkedOut(ByteView area, int attrNum) {
        const Expectation expected = expectationFor(area, attrNum);
        log_.clear();
        EXPECT_EQ(expected.found, locate(area, attrNum));
        if (expected.problem.empty()) {
            EXPECT_THAT(log_.lines(8), IsEmpty());
        } else {
            EXPECT_THAT(log_.log(8), ElementsAre(expected.problem));
        }
    }
};

Bytes sampleArea() {
    return "01066e656d6f 060600000001 1103aa 1802 5012000102030405060708090a0b0c0d0e0f"_hex;
}

TEST_F(HostileAreaTest, EveryTruncation) {
    const Bytes area = sampleArea();
    for (size_t size = 0; size <= area.size(); ++size) {
        for (const int attrNum : {1, 6, 17, 24, 80, 79}) {
            expectAsWorkedOut(ByteView(area).first(size), attrNum);
        }
    }
}

TEST_F(HostileAreaTest, EveryLengthByteAtEveryPlace) {
    const Bytes area = sampleArea();
    for (size_t at = 0; at < area.size(); at += area[at + 1]) {
        for (unsigned length = 0; length < 256; ++length) {
            Bytes changed = area;
            changed[at + 1] = static_cast<uint8_t>(length);
            for (const int attrNum : {80, 79}) {
                expectAsWorkedOut(changed, attrNum);
            }
        }
    }
}

}  // namespace
}  // namespace lanyard::test::locate_test
