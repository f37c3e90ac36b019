// Intrusive lists.
#include <gtest/gtest.h>
#include <vector>

#include <palcore.h>

namespace lanyard::test::lists_test {
namespace {

std::vector<const PalListNode *> forwards(const PalList &list) {
    std::vector<const PalListNode *> nodes;
    for (const PalListNode *node = list.first; node != nullptr; node = node->next) {
        nodes.push_back(node);
    }
    return nodes;
}

std::vector<const PalListNode *> backwards(const PalList &list) {
    std::vector<const PalListNode *> nodes;
    for (const PalListNode *node = list.last; node != nullptr; node = node->prev) {
        nodes.push_back(node);
    }
    return nodes;
}

using Nodes = std::vector<const PalListNode *>;

class Lists : public testing::Test {
  protected:
    Lists() {
        list.first = &a;  // What the list held before does not matter.
        EXPECT_EQ(0, palListInit(&list));
    }

    void fill() {
        for (PalListNode *node : {&a, &b, &c}) {
            node->next = node->prev = &stray;
            ASSERT_EQ(0, palListNodeAppend(&list, node));
        }
    }

    PalList list{};
    PalListNode a{}, b{}, c{}, stray{};
};

TEST_F(Lists, Init_EmptiesTheList) {
    EXPECT_EQ(nullptr, list.first);
    EXPECT_EQ(nullptr, list.last);
}

TEST_F(Lists, Append_PutsNodesAtTheEnd) {
    fill();
    EXPECT_EQ((Nodes{&a, &b, &c}), forwards(list));
    EXPECT_EQ((Nodes{&c, &b, &a}), backwards(list));
}

TEST_F(Lists, RemoveFirst_LeavesTheOthers) {
    fill();
    EXPECT_EQ(0, palListNodeRemove(&list, &a));
    EXPECT_EQ((Nodes{&b, &c}), forwards(list));
    EXPECT_EQ((Nodes{&c, &b}), backwards(list));
}

TEST_F(Lists, RemoveFromTheMiddle_JoinsTheNeighbours) {
    fill();
    EXPECT_EQ(0, palListNodeRemove(&list, &b));
    EXPECT_EQ((Nodes{&a, &c}), forwards(list));
    EXPECT_EQ((Nodes{&c, &a}), backwards(list));
    EXPECT_EQ(nullptr, b.next);
    EXPECT_EQ(nullptr, b.prev);
}

TEST_F(Lists, RemoveFromTheEnd_LeavesNothingAtLast) {
    fill();
    EXPECT_EQ(0, palListNodeRemove(&list, &c));
    EXPECT_EQ((Nodes{&b, &a}), backwards(list));
    EXPECT_EQ(0, palListNodeRemove(&list, &b));
    EXPECT_EQ(0, palListNodeRemove(&list, &a));
    EXPECT_EQ(nullptr, list.first);
    EXPECT_EQ(nullptr, list.last);
}

TEST_F(Lists, NodeThatIsNotInTheList_Refused) {
    fill();
    EXPECT_EQ(-1, palListNodeRemove(&list, &stray));
    EXPECT_EQ(0, palListNodeRemove(&list, &a));
    EXPECT_EQ(-1, palListNodeRemove(&list, &a));
    EXPECT_EQ((Nodes{&b, &c}), forwards(list));

    PalList other{};
    EXPECT_EQ(-1, palListNodeRemove(&other, &b));
    EXPECT_EQ((Nodes{&b, &c}), forwards(list));
}

TEST_F(Lists, Null_Refused) {
    EXPECT_EQ(-1, palListInit(nullptr));
    EXPECT_EQ(-1, palListNodeAppend(nullptr, &a));
    EXPECT_EQ(-1, palListNodeAppend(&list, nullptr));
    EXPECT_EQ(-1, palListNodeRemove(nullptr, &a));
    EXPECT_EQ(-1, palListNodeRemove(&list, nullptr));
}

}  // namespace
}  // namespace lanyard::test::lists_test
