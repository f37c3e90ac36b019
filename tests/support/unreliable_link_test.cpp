#include "tests/support/unreliable_link.h"

#include <algorithm>
#include <bit>
#include <numeric>

#include "tests/support/test.h"

namespace lanyard::test::unreliable_link_test {
namespace {

using testing::IsEmpty;
using testing::Lt;
using testing::SizeIs;

Datagram sample() {
    Datagram datagram(100);
    std::iota(datagram.begin(), datagram.end(), uint8_t{0});
    return datagram;
}

size_t wrongBits(const Datagram &one, const Datagram &other) {
    return std::transform_reduce(
        one.begin(), one.end(), other.begin(), size_t{0}, std::plus<>(),
        [](uint8_t a, uint8_t b) { return size_t(std::popcount(uint8_t(a ^ b))); });
}

// Which of 10,000 datagrams are lost.
std::vector<int> lostOf(uint32_t seed, double loss) {
    UnreliableLink link(seed);
    std::vector<int> lost;
    for (int i = 0; i < 10000; ++i) {
        if (link.pass(sample(), {.loss = loss}).empty()) {
            lost.push_back(i);
        }
    }
    return lost;
}

TEST(UnreliableLink, NoFaults_PassesAsItIs) {
    UnreliableLink link(1);
    const auto passed = link.pass(sample(), {});
    ASSERT_THAT(passed, SizeIs(1));
    EXPECT_BYTES_EQ(sample(), passed[0].datagram);
    EXPECT_EQ(0, passed[0].heldBack.count());
}

TEST(UnreliableLink, Loss_IsAsFrequentAsItIsTold) {
    EXPECT_THAT(lostOf(1, 0), IsEmpty());
    EXPECT_NEAR(100, static_cast<double>(lostOf(1, 0.01).size()), 40);
    EXPECT_THAT(lostOf(1, 1), SizeIs(10000));
}

TEST(UnreliableLink, SameSeed_LosesTheSame) {
    EXPECT_EQ(lostOf(7, 0.01), lostOf(7, 0.01));
    EXPECT_NE(lostOf(7, 0.01), lostOf(8, 0.01));
}

TEST(UnreliableLink, Duplicate_ArrivesTwice) {
    UnreliableLink link(1);
    const auto passed = link.pass(sample(), {.duplicate = 1});
    ASSERT_THAT(passed, SizeIs(2));
    EXPECT_BYTES_EQ(sample(), passed[0].datagram);
    EXPECT_BYTES_EQ(sample(), passed[1].datagram);
}

TEST(UnreliableLink, Truncate_CutsItsEndOff) {
    UnreliableLink link(1);
    for (int i = 0; i < 1000; ++i) {
        const auto passed = link.pass(sample(), {.truncate = 1});
        ASSERT_THAT(passed, SizeIs(1));
        ASSERT_THAT(passed[0].datagram.size(), Lt(sample().size()));
        ASSERT_TRUE(
            std::equal(passed[0].datagram.begin(), passed[0].datagram.end(), sample().begin()));
    }
    EXPECT_THAT(link.pass({}, {.truncate = 1}), SizeIs(1));
}

TEST(UnreliableLink, Corrupt_FlipsOneBit) {
    UnreliableLink link(1);
    for (int i = 0; i < 1000; ++i) {
        const auto passed = link.pass(sample(), {.corrupt = 1});
        ASSERT_THAT(passed, SizeIs(1));
        ASSERT_EQ(1U, wrongBits(sample(), passed[0].datagram));
    }
    EXPECT_THAT(link.pass({}, {.corrupt = 1}), SizeIs(1));
}

TEST(UnreliableLink, Reorder_HoldsBack) {
    UnreliableLink link(1);
    EXPECT_EQ(UnreliableLink::kHeldBack, link.pass(sample(), {.reorder = 1})[0].heldBack);
}

}  // namespace
}  // namespace lanyard::test::unreliable_link_test
