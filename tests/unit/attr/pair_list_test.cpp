// Lists of pairs.
#include <cstddef>
#include <utility>
#include <vector>

#include <lanyard/radius/attr.h>

#include "tests/support/test.h"
#include "tests/unit/attr/pair_fixture.h"

namespace lanyard::test::pair_list_test {
namespace {

using testing::ElementsAre;

std::vector<RadPair *> membersOf(RadPair *list) {
    std::vector<RadPair *> members;
    for (RadPair *pair = list; pair != nullptr; pair = radPairNext(pair)) {
        members.push_back(pair);
    }
    return members;
}

TEST_F(PairTest, AddsAtTheEnd) {
    RadPair *list = nullptr;
    RadPair *first = radPairAdd(&list, RAD_ATTR_USER_NAME, "nemo", 0);
    ASSERT_NE(nullptr, first);
    EXPECT_EQ(first, list);
    EXPECT_EQ(nullptr, first->next);
    const uint32_t number = 2;
    RadPair *second = radPairAdd(&list, RAD_ATTR_SERVICE_TYPE, &number, 4);
    RadPair *third = radPairAdd(&list, RAD_ATTR_STATE, "s", 1);
    const PairList owner(list);
    EXPECT_THAT(membersOf(list), ElementsAre(first, second, third));
    EXPECT_EQ(nullptr, third->next);
    EXPECT_EQ(2U, second->numValue);
    EXPECT_LOG(log_);
}

TEST_F(PairTest, AddNeedsAListAndAValue) {
    RadPair *list = nullptr;
    EXPECT_EQ(nullptr, radPairAdd(nullptr, RAD_ATTR_USER_NAME, "nemo", 0));
    EXPECT_EQ(nullptr, radPairAdd(nullptr, 17, "nemo", 0));
    EXPECT_EQ(nullptr, radPairAdd(&list, RAD_ATTR_USER_NAME, nullptr, 0));
    EXPECT_EQ(nullptr, list);
    EXPECT_LOG(log_);
}

TEST_F(PairTest, AFailedAddLeavesTheListAsItWas) {
    RadPair *list = makeList();
    const PairList owner(list);
    const auto before = membersOf(list);
    const size_t blocks = liveBlocks();
    EXPECT_EQ(nullptr, radPairAdd(&list, 17, "x", 1));
    EXPECT_EQ(nullptr, radPairAdd(&list, RAD_ATTR_STATE, Bytes(254).data(), 254));
    failAllocation(1);
    EXPECT_EQ(nullptr, radPairAdd(&list, RAD_ATTR_STATE, "x", 1));
    stopFailing();
    EXPECT_EQ(before, membersOf(list));
    EXPECT_EQ(blocks, liveBlocks());
    EXPECT_LOG(log_, "error radPairNew: unknown attribute 17", kBadLength,
               "critical radPairNew: out of memory");
}

TEST_F(PairTest, EveryFailingAllocationOfAListIsAResult) {
    const unsigned failures = forEachFailingAllocation([] {
        RadPair *list = nullptr;
        RadPair *first = radPairAdd(&list, RAD_ATTR_USER_NAME, "nemo", 0);
        RadPair *second = radPairAdd(&list, RAD_ATTR_STATE, "state", 0);
        const PairList copy(radPairDup(first));
        const PairList owner(list);
        EXPECT_EQ(allocationFailed(), !first || !second || !copy);
        EXPECT_EQ((first != nullptr ? 1U : 0U) + (second != nullptr ? 1U : 0U),
                  membersOf(list).size());
    });
    EXPECT_EQ(3U, failures);
}

TEST_F(PairTest, InsertAppends) {
    RadPair *list = nullptr;
    RadPair *first = makePair(RAD_ATTR_USER_NAME, "nemo").release();
    RadPair *second = makePair(RAD_ATTR_STATE, "s").release();
    EXPECT_EQ(0, radPairInsert(&list, nullptr, first));
    EXPECT_EQ(first, list);
    EXPECT_EQ(0, radPairInsert(&list, nullptr, second));
    const PairList owner(list);
    EXPECT_THAT(membersOf(list), ElementsAre(first, second));
}

TEST_F(PairTest, InsertIntoTheEmptyListIgnoresAfter) {
    const PairList elsewhere = makePair(RAD_ATTR_STATE, "elsewhere");
    RadPair *list = nullptr;
    RadPair *pair = makePair(RAD_ATTR_USER_NAME, "nemo").release();
    const PairList owner(pair);
    EXPECT_EQ(0, radPairInsert(&list, elsewhere.get(), pair));
    EXPECT_EQ(pair, list);
    EXPECT_EQ(nullptr, elsewhere->next);
}

TEST_F(PairTest, InsertAfterAGivenPairIsNotOffered) {
    RadPair *list = makeList();
    const PairList owner(list);
    const auto before = membersOf(list);
    const PairList pair = makePair(RAD_ATTR_STATE, "new");
    const PairList elsewhere = makePair(RAD_ATTR_STATE, "elsewhere");
    for (RadPair *after : {before.front(), before.back(), elsewhere.get(), pair.get()}) {
        EXPECT_EQ(-1, radPairInsert(&list, after, pair.get()));
        EXPECT_EQ(before, membersOf(list));
        EXPECT_EQ(nullptr, pair->next);
    }
    EXPECT_LOG(log_);
}

TEST_F(PairTest, InsertRefusesAPairThatIsInAList) {
    RadPair *list = makeList();
    const PairList owner(list);
    RadPair *empty = nullptr;
    RadPair *other = makePair(RAD_ATTR_USER_NAME, "nemo").release();
    const PairList otherOwner(other);
    EXPECT_EQ(-1, radPairInsert(&empty, nullptr, list));
    EXPECT_EQ(nullptr, empty);
    EXPECT_EQ(-1, radPairInsert(&other, nullptr, list));
    EXPECT_EQ(nullptr, other->next);
    EXPECT_EQ(-1, radPairInsert(nullptr, nullptr, other));
    EXPECT_EQ(-1, radPairInsert(&list, nullptr, nullptr));
    EXPECT_EQ(3U, membersOf(list).size());
    EXPECT_LOG(log_);
}

TEST_F(PairTest, InsertOfTheListsOwnLastPair_LeavesTheList) {
    RadPair *list = makeList();
    const PairList owner(list);
    const auto before = membersOf(list);
    EXPECT_EQ(-1, radPairInsert(&list, nullptr, before.back()));
    ASSERT_EQ(nullptr, before.back()->next);
    EXPECT_EQ(before, membersOf(list));

    RadPair *single = makePair(RAD_ATTR_USER_NAME, "nemo").release();
    const PairList singleOwner(single);
    EXPECT_EQ(-1, radPairInsert(&single, nullptr, single));
    ASSERT_EQ(nullptr, single->next);
    EXPECT_EQ(singleOwner.get(), single);
    EXPECT_LOG(log_);
}

TEST_F(PairTest, GetFindsTheFirst) {
    const PairList list(makeList());
    const auto members = membersOf(list.get());
    EXPECT_EQ(members[0], radPairGet(list.get(), RAD_ATTR_USER_NAME));
    EXPECT_EQ(members[1], radPairGet(list.get(), RAD_ATTR_STATE));
    EXPECT_EQ(members[2], radPairGet(radPairNext(members[1]), RAD_ATTR_STATE));
    EXPECT_EQ(nullptr, radPairGet(members[1], RAD_ATTR_USER_NAME));
    EXPECT_EQ(nullptr, radPairGet(list.get(), RAD_ATTR_STATE + 256));
    EXPECT_EQ(nullptr, radPairGet(list.get(), RAD_ATTR_EAP_MESSAGE));
    EXPECT_EQ(nullptr, radPairNext(members[2]));
}

TEST_F(PairTest, RemoveUnlinksAtEveryPlace) {
    for (size_t place = 0; place < 3; ++place) {
        RadPair *list = makeList();
        auto members = membersOf(list);
        const PairList removed(members[place]);
        EXPECT_EQ(0, radPairRemove(&list, removed.get()));
        const PairList owner(list);
        EXPECT_EQ(nullptr, removed->next);
        members.erase(members.begin() + static_cast<std::ptrdiff_t>(place));
        EXPECT_EQ(members, membersOf(list));
    }
    EXPECT_LOG(log_);
}

TEST_F(PairTest, RemoveOfTheOnlyPairLeavesTheEmptyList) {
    const PairList pair = makePair(RAD_ATTR_STATE, "only");
    RadPair *list = pair.get();
    EXPECT_EQ(0, radPairRemove(&list, pair.get()));
    EXPECT_EQ(nullptr, list);
    EXPECT_STREQ("only", pair->strValue);
}

TEST_F(PairTest, RemoveOfWhatIsNotInTheListChangesNothing) {
    RadPair *list = makeList();
    const PairList owner(list);
    const auto before = membersOf(list);
    const PairList stranger(makeList());
    const auto strangers = membersOf(stranger.get());
    RadPair *empty = nullptr;
    EXPECT_EQ(-1, radPairRemove(&list, strangers[0]));
    EXPECT_EQ(-1, radPairRemove(&list, nullptr));
    EXPECT_EQ(-1, radPairRemove(nullptr, strangers[0]));
    EXPECT_EQ(-1, radPairRemove(&empty, strangers[0]));
    EXPECT_EQ(before, membersOf(list));
    EXPECT_EQ(strangers, membersOf(stranger.get()));
    EXPECT_EQ(nullptr, empty);
    EXPECT_LOG(log_);
}

TEST_F(PairTest, DeleteTakesOnlyTheFirst) {
    RadPair *list = makeList();
    const auto before = membersOf(list);
    const size_t blocks = liveBlocks();
    EXPECT_EQ(0, radPairDelete(&list, RAD_ATTR_STATE));
    EXPECT_EQ(blocks - 1, liveBlocks());
    EXPECT_THAT(membersOf(list), ElementsAre(before[0], before[2]));
    EXPECT_STREQ("second", list->next->strValue);
    EXPECT_EQ(0, radPairDelete(&list, RAD_ATTR_USER_NAME));
    EXPECT_EQ(before[2], list);
    EXPECT_EQ(-1, radPairDelete(&list, RAD_ATTR_USER_NAME));
    EXPECT_EQ(0, radPairDelete(&list, RAD_ATTR_STATE));
    EXPECT_EQ(nullptr, list);
    EXPECT_EQ(-1, radPairDelete(&list, RAD_ATTR_STATE));
    EXPECT_EQ(-1, radPairDelete(nullptr, RAD_ATTR_STATE));
    EXPECT_EQ(blocks - 3, liveBlocks());
    EXPECT_LOG(log_);
}

TEST_F(PairTest, DupCopiesTheWholeRecordButItsPlace) {
    const PairList list(makeList());
    RadPair *middle = list->next;
    const PairList copy(radPairDup(middle));
    ASSERT_NE(nullptr, copy);
    EXPECT_EQ(nullptr, copy->next);
    RadPair expected = *middle;
    expected.next = nullptr;
    EXPECT_BYTES_EQ(bytesOf(expected), bytesOf(*copy));
    EXPECT_EQ(3U, membersOf(list.get()).size());
}

TEST_F(PairTest, DupTakesTheBufferAfterTheValueToo) {
    const PairList pair(radPairNew(RAD_ATTR_STATE, counting(253).data(), 253));
    ASSERT_EQ(0, radPairAssign(pair.get(), "x", 1));
    const PairList copy(radPairDup(pair.get()));
    EXPECT_BYTES_EQ(bytesOf(*pair), bytesOf(*copy));
}

TEST_F(PairTest, DupReportsExhaustedMemorySilently) {
    const PairList pair = makePair(RAD_ATTR_STATE, "x");
    failAllocation(1);
    EXPECT_EQ(nullptr, radPairDup(pair.get()));
    stopFailing();
    EXPECT_TRUE(allocationFailed());
    EXPECT_LOG(log_);
}

TEST_F(PairTest, ListFreeFreesFromTheGivenPairOn) {
    RadPair *list = makeList();
    const size_t blocks = liveBlocks();
    RadPair *rest = std::exchange(list->next, nullptr);
    radPairListFree(rest);
    EXPECT_EQ(blocks - 2, liveBlocks());
    radPairListFree(list);
    EXPECT_EQ(blocks - 3, liveBlocks());
    EXPECT_LOG(log_);
}

TEST_F(PairTest, ValuesAreWipedWithTheirPairs) {
    watchFor("arctangent");
    RadPair *list = nullptr;
    for (int i = 0; i < 3; ++i) {
        EXPECT_NE(nullptr, radPairAdd(&list, RAD_ATTR_USER_PASSWORD, "arctangent", 0));
    }
    EXPECT_EQ(3U, liveBlocksWithText());
    EXPECT_EQ(0, radPairDelete(&list, RAD_ATTR_USER_PASSWORD));
    EXPECT_EQ(2U, liveBlocksWithText());
    radPairListFree(list);
    EXPECT_EQ(0U, liveBlocksWithText());
    EXPECT_EQ(0U, releasedBlocksWithText());
    watchFor({});
}

}  // namespace
}  // namespace lanyard::test::pair_list_test
