#include <gtest/gtest.h>
#include <vector>

#include <palcore.h>

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
        EXPECT_EQ(palListInit(&list), 0);
    }

    void fill() {
        for (PalListNode *node : {&a, &b, &c}) {
            node->next = node->prev = &stray;
            ASSERT_EQ(palListNodeAppend(&list, node), 0);
        }
    }

    PalList list{};
    PalListNode a{}, b{}, c{}, stray{};
};

TEST_F(Lists, IsEmptyAfterInit) {
    EXPECT_EQ(list.first, nullptr);
    EXPECT_EQ(list.last, nullptr);
}

TEST_F(Lists, AppendsAtTheEnd) {
    fill();
    EXPECT_EQ(forwards(list), (Nodes{&a, &b, &c}));
    EXPECT_EQ(backwards(list), (Nodes{&c, &b, &a}));
}

TEST_F(Lists, RemovesTheFirst) {
    fill();
    EXPECT_EQ(palListNodeRemove(&list, &a), 0);
    EXPECT_EQ(forwards(list), (Nodes{&b, &c}));
    EXPECT_EQ(backwards(list), (Nodes{&c, &b}));
}

TEST_F(Lists, RemovesFromTheMiddle) {
    fill();
    EXPECT_EQ(palListNodeRemove(&list, &b), 0);
    EXPECT_EQ(forwards(list), (Nodes{&a, &c}));
    EXPECT_EQ(backwards(list), (Nodes{&c, &a}));
    EXPECT_EQ(b.next, nullptr);
    EXPECT_EQ(b.prev, nullptr);
}

TEST_F(Lists, RemovesTheLastUntilEmpty) {
    fill();
    EXPECT_EQ(palListNodeRemove(&list, &c), 0);
    EXPECT_EQ(backwards(list), (Nodes{&b, &a}));
    EXPECT_EQ(palListNodeRemove(&list, &b), 0);
    EXPECT_EQ(palListNodeRemove(&list, &a), 0);
    EXPECT_EQ(list.first, nullptr);
    EXPECT_EQ(list.last, nullptr);
}

TEST_F(Lists, RefusesANodeThatIsNotInTheList) {
    fill();
    EXPECT_EQ(palListNodeRemove(&list, &stray), -1);
    EXPECT_EQ(palListNodeRemove(&list, &a), 0);
    EXPECT_EQ(palListNodeRemove(&list, &a), -1);
    EXPECT_EQ(forwards(list), (Nodes{&b, &c}));

    PalList other{};
    EXPECT_EQ(palListNodeRemove(&other, &b), -1);
    EXPECT_EQ(forwards(list), (Nodes{&b, &c}));
}

TEST_F(Lists, RefusesNull) {
    EXPECT_EQ(palListInit(nullptr), -1);
    EXPECT_EQ(palListNodeAppend(nullptr, &a), -1);
    EXPECT_EQ(palListNodeAppend(&list, nullptr), -1);
    EXPECT_EQ(palListNodeRemove(nullptr, &a), -1);
    EXPECT_EQ(palListNodeRemove(&list, nullptr), -1);
}

}  // namespace
