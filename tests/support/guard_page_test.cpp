// Buffers that nobody oversteps unseen.
#include <cstdio>
#include <gtest/gtest-spi.h>

#include "tests/support/test.h"

namespace lanyard::test::guard_page_test {
namespace {

TEST(GuardedBufferDeathTest, EndsTheTestOnePastTheEdge) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    GuardedBuffer atEnd("010203"_hex);
    GuardedBuffer atStart("010203"_hex, GuardedBuffer::Edge::start);
    EXPECT_BYTES_EQ("010203"_hex, atEnd.bytes());
    EXPECT_BYTES_EQ("010203"_hex, atStart.bytes());
    EXPECT_STREQ("text", GuardedBuffer::ofText("text").text());
    const auto read = [](const volatile uint8_t *byte) { std::printf("%d\n", *byte); };
    EXPECT_DEATH(read(atEnd.data() + 3), "");
    EXPECT_DEATH(read(atStart.data() - 1), "");
    atEnd.makeReadOnly();
    EXPECT_DEATH(*const_cast<volatile uint8_t *>(atEnd.data()) = 0, "");
    const GuardedBuffer empty(0);
    EXPECT_DEATH(read(empty.data()), "");
}

TEST(GuardedBufferTest, SeesWritingAtItsOtherEnd) {
    EXPECT_NONFATAL_FAILURE(
        {
            GuardedBuffer buffer(3);
            *(buffer.data() - 1) = 0;
        },
        "in front of the buffer");
    EXPECT_NONFATAL_FAILURE(
        {
            GuardedBuffer buffer(3, GuardedBuffer::Edge::start);
            *(buffer.data() + 3) = 0;
        },
        "after the buffer");
}

}  // namespace
}  // namespace lanyard::test::guard_page_test
