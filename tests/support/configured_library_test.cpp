// The library, started for a test and stopped after it.
#include <gtest/gtest-spi.h>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/conf.h>
#include <lanyard/radius/dict.h>
#include <lanyard/radius/engine.h>
#include <lanyard/radius/frame.h>

#include "tests/support/sample_exchange.h"
#include "tests/support/test.h"

namespace lanyard::test::configured_library_test {
namespace {

TEST(ConfiguredLibraryTest, StartsFromNothingAndStops) {
    {
        const ScriptedServer server(kSecret);
        const ConfiguredLibrary library({.authServers = {serverEntry(server, 2, 1)},
                                         .acctServers = {{.port = 1, .secret = "other"}},
                                         .timeout = "7",
                                         .retries = "3"});
        EXPECT_EQ(0, radConfAssert());
        const auto *servers = static_cast<const RadServer *>(radConfGet(RAD_CONF_AUTH_SERVERS));
        ASSERT_NE(nullptr, servers);
        EXPECT_STREQ("127.0.0.1", servers[0].host);
        EXPECT_EQ(server.port(), servers[0].port);
        EXPECT_STREQ(kSecret, servers[0].secret);
        EXPECT_EQ(2, servers[0].timeout);
        EXPECT_EQ(7, *static_cast<const int32_t *>(radConfGet(RAD_CONF_TIMEOUT)));
        EXPECT_NE(nullptr, radDictGetAttr(1));
        EXPECT_TRUE(library.root().exists("/var/hosts"));
        EXPECT_NE(0U, radGetHostIP());
    }
    EXPECT_EQ(0U, radMemPartId);
    EXPECT_EQ(nullptr, radDictGetAttr(1));
}

TEST(ConfiguredLibraryTest, FailsATestThatLeavesBlocks) {
    EXPECT_NONFATAL_FAILURE(
        {
            const ConfiguredLibrary library;
            EXPECT_NE(nullptr, radPairNew(RAD_ATTR_USER_NAME, "nemo", 0));
        },
        "blocks of the library's partition are left over");
}

}  // namespace
}  // namespace lanyard::test::configured_library_test
