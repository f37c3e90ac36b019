// A folder in place of the device's root.
#include <cstdio>
#include <filesystem>
#include <gtest/gtest-spi.h>

#include <palcore.h>

#include "tests/support/test.h"

namespace lanyard::test::temporary_root_test {
namespace {

using testing::ElementsAre;

TEST(TemporaryRootTest, StandsInForTheRootOfTheDevice) {
    std::filesystem::path folder;
    {
        const TemporaryRoot root;
        folder = root.folder();
        root.write("/var/deep/file", "text\n", 0640);
        EXPECT_EQ("text\n", root.read("var/deep/file"));
        EXPECT_EQ(0640U, root.mode("/var/deep/file"));
        FILE *file = palFileOpen("/var/deep/file", "a");
        ASSERT_NE(nullptr, file);
        palFilePrintf(file, "more\n");
        EXPECT_EQ(0, palFileClose(file));
        EXPECT_EQ("text\nmore\n", root.read("/var/deep/file"));
        EXPECT_THAT(root.list("/var"), ElementsAre("deep"));
        root.remove("/var/deep");
        EXPECT_FALSE(root.exists("/var/deep/file"));
        root.makeFolder("/tmp");
        EXPECT_TRUE(root.exists("/tmp"));
        EXPECT_NONFATAL_FAILURE((void)root.read("/absent"), "cannot read");
        EXPECT_NONFATAL_FAILURE((void)root.mode("/absent"), "no such file");
    }
    EXPECT_FALSE(std::filesystem::exists(folder));
}

}  // namespace
}  // namespace lanyard::test::temporary_root_test
