// A program may put its own definition of any platform function in the place of the port's. This
// program brings an allocator that fails on order; the port's own calls arrive here as well.
#include <cstdlib>
#include <gtest/gtest.h>

#include <palcore.h>

namespace {

int allocationsLeft = 0;

}  // namespace

void *palMemPartAlloc(PalMemPartId /*part*/, uint32_t size) {
    return allocationsLeft-- > 0 ? std::malloc(size) : nullptr;
}

namespace lanyard::test::interposition_test {
namespace {

TEST(Interposition, DefinitionOfTheProgram_CalledByThePort) {
    allocationsLeft = 1;
    char *copy = palMemPartStrDup(0, "text");
    ASSERT_NE(nullptr, copy);
    EXPECT_STREQ("text", copy);
    EXPECT_EQ(nullptr, palMemPartStrDup(0, "text"));
    EXPECT_EQ(-1, palMemPartFree(0, copy)) << "the port does not know the program's blocks";
    std::free(copy);
}

}  // namespace
}  // namespace lanyard::test::interposition_test
