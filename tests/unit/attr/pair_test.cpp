// One pair: what its attribute says, and the value that it is given.
#include <algorithm>
#include <climits>
#include <cstring>
#include <span>
#include <string>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/dict.h>
#include <lanyard/radius/frame.h>

#include "tests/support/test.h"
#include "tests/unit/attr/pair_fixture.h"

namespace lanyard::test::pair_test {
namespace {

using testing::Each;

TEST_F(PairTest, HoldsWhatTheDictionarySaysAndTheValue) {
    const PairList pair = makePair(RAD_ATTR_USER_NAME, "nemo");
    ASSERT_NE(nullptr, pair);
    EXPECT_STREQ("User-Name", pair->name);
    EXPECT_EQ(RAD_ATTR_USER_NAME, pair->attrNum);
    EXPECT_EQ(RAD_TYPE_STRING, pair->type);
    EXPECT_EQ(4U, pair->numValue);
    EXPECT_STREQ("nemo", pair->strValue);
    EXPECT_EQ(nullptr, pair->next);
    EXPECT_LOG(log_);
}

TEST_F(PairTest, HasTheTypeOfItsDefinition) {
    ASSERT_EQ(0, radDictAddAttr("Event-Timestamp 55 date"));
    const uint32_t number = 1;
    for (const auto &[attrNum, type] :
         {std::pair(RAD_ATTR_SERVICE_TYPE + 0, RAD_TYPE_INTEGER + 0),
          std::pair(RAD_ATTR_NAS_IP_ADDRESS + 0, RAD_TYPE_IPADDR + 0), std::pair(55, 3)}) {
        const PairList pair(radPairNew(attrNum, &number, 4));
        ASSERT_NE(nullptr, pair);
        EXPECT_EQ(attrNum, pair->attrNum);
        EXPECT_EQ(type, pair->type);
        EXPECT_STREQ(radDictGetAttr(attrNum)->name, pair->name);
    }
}

TEST_F(PairTest, ComesFromTheLibrarysPartition) {
    const size_t heap = heapBlocks();
    const size_t partition = liveBlocks(radMemPartId);
    PairList pair = makePair(RAD_ATTR_USER_NAME, "nemo");
    EXPECT_EQ(partition + 1, liveBlocks(radMemPartId));
    EXPECT_EQ(heap, heapBlocks());
    const PairList copy(radPairDup(pair.get()));
    EXPECT_EQ(partition + 2, liveBlocks(radMemPartId));
    EXPECT_EQ(heap, heapBlocks());
    pair.reset();
    EXPECT_EQ(partition + 1, liveBlocks(radMemPartId));
}

TEST_F(PairTest, TakesANameOf32Characters) {
    const std::string name(32, 'N');
    ASSERT_EQ(0, radDictAddAttr((name + " 200 string").c_str()));
    const PairList pair = makePair(200, "x");
    ASSERT_NE(nullptr, pair);
    EXPECT_EQ(name, pair->name);
    EXPECT_EQ(200, pair->attrNum);
}

TEST_F(PairTest, IsZeroWhereNothingWasPut) {
    const PairList text = makePair(RAD_ATTR_USER_NAME, "nemo");
    ASSERT_NE(nullptr, text);
    EXPECT_THAT(std::span(text->strValue).subspan(4), Each('\0'));
    EXPECT_THAT(std::span(text->name).subspan(std::strlen("User-Name")), Each('\0'));
    const uint32_t number = 2;
    const PairList service(radPairNew(RAD_ATTR_SERVICE_TYPE, &number, 4));
    ASSERT_NE(nullptr, service);
    EXPECT_THAT(service->strValue, Each('\0'));
}

TEST_F(PairTest, NeedsAnAttributeOfTheDictionary) {
    const size_t allocations = allocationCount();
    for (const int attrNum : {0, 17, 255, 256, -1, INT_MAX, INT_MIN}) {
        log_.clear();
        EXPECT_EQ(nullptr, radPairNew(attrNum, "nemo", 0));
        EXPECT_LOG(log_, "error radPairNew: unknown attribute " + std::to_string(attrNum));
    }
    EXPECT_EQ(allocations, allocationCount());
}

TEST_F(PairTest, NeedsAValue) {
    EXPECT_EQ(nullptr, radPairNew(RAD_ATTR_USER_NAME, nullptr, 0));
    EXPECT_EQ(nullptr, radPairNew(17, nullptr, 4));  // an unknown one is not even looked up
    EXPECT_LOG(log_);
}

TEST_F(PairTest, ReportsExhaustedMemory) {
    failAllocation(1);
    // The value, which would be refused as well, comes after the allocation.
    EXPECT_EQ(nullptr, radPairNew(RAD_ATTR_USER_NAME, Bytes(254, 'a').data(), 254));
    stopFailing();
    EXPECT_TRUE(allocationFailed());
    EXPECT_LOG(log_, "critical radPairNew: out of memory");
}

TEST_F(PairTest, FreesThePairWhoseValueIsRefused) {
    const size_t blocks = liveBlocks();
    const size_t allocations = allocationCount();
    EXPECT_EQ(nullptr, radPairNew(RAD_ATTR_USER_NAME, Bytes(254, 'a').data(), 254));
    EXPECT_EQ(allocations + 1, allocationCount());
    EXPECT_EQ(blocks, liveBlocks());
    EXPECT_LOG(log_, kBadLength);

    makeTypeUnknown(RAD_ATTR_STATE);
    log_.clear();
    EXPECT_EQ(nullptr, radPairNew(RAD_ATTR_STATE, "x", 1));
    EXPECT_EQ(blocks, liveBlocks());
    EXPECT_LOG(log_, "error radPairAssign: unknown attribute type 7");
}

// Bytes of an explicit length.

TEST_F(PairTest, TakesEveryLengthThatAnAttributeCanHave) {
    for (int length = 1; length <= RAD_VALUE_MAX; ++length) {
        const Bytes bytes = counting(static_cast<size_t>(length));
        const GuardedBuffer value(bytes);
        const PairList pair(radPairNew(RAD_ATTR_STATE, value.data(), length));
        ASSERT_NE(nullptr, pair) << length;
        EXPECT_EQ(length, radPairValueLen(pair.get()));
        EXPECT_BYTES_EQ(bytes, valueOf(*pair));
        EXPECT_EQ('\0', std::span(pair->strValue)[bytes.size()]);
    }
    EXPECT_LOG(log_);
}

TEST_F(PairTest, KeepsEmbeddedNuls) {
    const PairList pair(radPairNew(RAD_ATTR_STATE, "a\0b\0", 4));
    ASSERT_NE(nullptr, pair);
    EXPECT_EQ(4, radPairValueLen(pair.get()));
    EXPECT_BYTES_EQ("61006200"_hex, valueOf(*pair));
}

TEST_F(PairTest, RefusesMoreThanAnAttributeCanHaveWithoutReadingIt) {
    const PairList pair = makePair(RAD_ATTR_STATE, "before");
    const Bytes before = bytesOf(*pair);
    const GuardedBuffer value("01"_hex);
    for (const int length : {254, 255, 256, 65536, INT_MAX}) {
        log_.clear();
        EXPECT_EQ(-1, radPairAssign(pair.get(), value.data(), length));
        EXPECT_LOG(log_, kBadLength);
        EXPECT_BYTES_EQ(before, bytesOf(*pair));
    }
}

TEST_F(PairTest, EndsAShorterValueAfterItsBytes) {
    const PairList pair(radPairNew(RAD_ATTR_STATE, counting(253).data(), 253));
    EXPECT_EQ(0, radPairAssign(pair.get(), "nemo", 2));
    EXPECT_EQ(2, radPairValueLen(pair.get()));
    EXPECT_STREQ("ne", pair->strValue);
    EXPECT_EQ(0, radPairAssign(pair.get(), "arctangent", 0));
    EXPECT_EQ(10, radPairValueLen(pair.get()));
    EXPECT_STREQ("arctangent", pair->strValue);
}

// Text.

TEST_F(PairTest, TakesTextUpToItsNul) {
    for (const size_t length : {0U, 1U, 4U, 252U, 253U}) {
        const std::string text(length, 'a');
        for (const int len : {0, -1, INT_MIN}) {
            GuardedBuffer value = GuardedBuffer::ofText(text);
            const PairList pair(radPairNew(RAD_ATTR_STATE, value.text(), len));
            ASSERT_NE(nullptr, pair) << length;
            EXPECT_EQ(static_cast<int>(length), radPairValueLen(pair.get()));
            EXPECT_EQ(text, pair->strValue);
        }
    }
    EXPECT_LOG(log_);
}

TEST_F(PairTest, RefusesTextOf254Characters) {
    const PairList pair = makePair(RAD_ATTR_STATE, "before");
    const Bytes before = bytesOf(*pair);
    for (const size_t length : {254U, 300U}) {
        log_.clear();
        EXPECT_EQ(-1, radPairAssign(pair.get(), std::string(length, 'a').c_str(), 0));
        EXPECT_LOG(log_, kBadLength);
        EXPECT_BYTES_EQ(before, bytesOf(*pair));
    }
}

TEST_F(PairTest, TextSetsTheLastByteToNul_BytesDoNot) {
    for (const int len : {0, -1}) {
        const PairList pair(radPairNew(RAD_ATTR_STATE, "before", 0));
        std::span bytes(pair->strValue);
        std::fill(bytes.begin(), bytes.end(), 'x');
        EXPECT_EQ(0, radPairAssign(pair.get(), "nemo", len));
        EXPECT_STREQ("nemo", pair->strValue);
        EXPECT_EQ('x', bytes[5]);
        EXPECT_EQ('x', bytes[RAD_VALUE_MAX - 1]);
        EXPECT_EQ('\0', bytes[RAD_VALUE_MAX]);
    }
    const PairList pair(radPairNew(RAD_ATTR_STATE, "before", 0));
    std::span bytes(pair->strValue);
    std::fill(bytes.begin(), bytes.end(), 'x');
    EXPECT_EQ(0, radPairAssign(pair.get(), "nemo", 4));
    EXPECT_STREQ("nemo", pair->strValue);
    EXPECT_EQ('x', bytes[RAD_VALUE_MAX]);
}

TEST_F(PairTest, CutsTextOfNegativeLengthAndRecordsItsFullLength) {
    for (const size_t length : {254U, 300U, 1000U}) {
        const std::string text = std::string(253, 'a') + std::string(length - 253, 'b');
        const PairList pair(radPairNew(RAD_ATTR_STATE, text.c_str(), -1));
        ASSERT_NE(nullptr, pair);
        EXPECT_EQ(std::string(253, 'a'), pair->strValue);
        EXPECT_EQ(length, pair->numValue);
        EXPECT_EQ(static_cast<int>(length), radPairValueLen(pair.get()));
    }
    EXPECT_LOG(log_);
}

// Numbers.

TEST_F(PairTest, TakesNumbersOfAnyAlignmentWhateverTheLength) {
    ASSERT_EQ(0, radDictAddAttr("Event-Timestamp 55 date"));
    const uint32_t number = 0x81020304;
    Bytes bytes(4);
    std::memcpy(bytes.data(), &number, sizeof(number));
    for (const int attrNum : {RAD_ATTR_SERVICE_TYPE + 0, RAD_ATTR_NAS_IP_ADDRESS + 0, 55}) {
        for (const int len : {4, 0, 1, 3, 254, -1, INT_MAX, INT_MIN}) {
            for (const auto edge : {GuardedBuffer::Edge::end, GuardedBuffer::Edge::start}) {
                const GuardedBuffer value(bytes, edge);
                const PairList pair(radPairNew(attrNum, value.data(), len));
                ASSERT_NE(nullptr, pair);
                EXPECT_EQ(number, pair->numValue);
                EXPECT_EQ(4, radPairValueLen(pair.get()));
                EXPECT_EQ(&pair->numValue, radPairValue(pair.get()));
            }
        }
        const GuardedBuffer unaligned(concatenate({"ff"_hex, bytes, "ff"_hex}));
        for (const size_t offset : {1U}) {
            const PairList pair(radPairNew(attrNum, unaligned.data() + offset, 4));
            ASSERT_NE(nullptr, pair);
            EXPECT_EQ(number, pair->numValue);
        }
    }
    EXPECT_LOG(log_);
}

// Value types that there are none of.

TEST_F(PairTest, KnowsNoOtherTypes) {
    const PairList pair = makePair(RAD_ATTR_STATE, "before");
    for (const int32_t type : {kUnknownType, 4, -1, INT32_MAX, INT32_MIN}) {
        pair->type = type;
        const Bytes before = bytesOf(*pair);
        const std::string suffix = ": unknown attribute type " + std::to_string(type);
        log_.clear();
        EXPECT_EQ(-1, radPairAssign(pair.get(), "nemo", 4));
        EXPECT_EQ(nullptr, radPairValue(pair.get()));
        EXPECT_EQ(-1, radPairValueLen(pair.get()));
        EXPECT_LOG(log_, "error radPairAssign" + suffix, "error radPairValue" + suffix,
                   "error radPairValueLen" + suffix);
        EXPECT_BYTES_EQ(before, bytesOf(*pair));
    }
}

TEST_F(PairTest, NothingIsNoPairAndNoValue) {
    const PairList pair = makePair(RAD_ATTR_STATE, "before");
    const Bytes before = bytesOf(*pair);
    EXPECT_EQ(-1, radPairAssign(nullptr, "nemo", 4));
    EXPECT_EQ(-1, radPairAssign(pair.get(), nullptr, 4));
    pair->type = kUnknownType;
    EXPECT_EQ(-1, radPairAssign(pair.get(), nullptr, 4));
    pair->type = RAD_TYPE_STRING;
    EXPECT_BYTES_EQ(before, bytesOf(*pair));
    EXPECT_EQ(nullptr, radPairValue(nullptr));
    EXPECT_EQ(-1, radPairValueLen(nullptr));
    EXPECT_EQ(nullptr, radPairNext(nullptr));
    EXPECT_EQ(nullptr, radPairDup(nullptr));
    EXPECT_EQ(nullptr, radPairGet(nullptr, RAD_ATTR_STATE));
    radPairListFree(nullptr);
    EXPECT_LOG(log_);
}

TEST_F(PairTest, ValueOfAStringLiesInThePair) {
    const PairList pair = makePair(RAD_ATTR_STATE, "nemo");
    EXPECT_EQ(pair->strValue, radPairValue(pair.get()));
    EXPECT_EQ(4, radPairValueLen(pair.get()));
}

}  // namespace
}  // namespace lanyard::test::pair_test
