// No block of memory goes back to the partition with a shared secret in it.
#include <string>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/frame.h>

#include "tests/support/test.h"

namespace lanyard::test::secrets_test {
namespace {

class SharedSecret : public testing::Test {
  protected:
    void SetUp() override { watchFor(secret_); }

    void TearDown() override {
        EXPECT_EQ(0, radDeconfigure());
        EXPECT_EQ(0U, liveBlocks());
        EXPECT_EQ(0U, releasedBlocksWithText());
        watchFor({});
    }

    const std::string secret_ = "xyzzy-5551-plugh";
};

TEST_F(SharedSecret, IsWipedWithTheWholeList) {
    ASSERT_EQ(0, radConfAddAuthServ("h", 1, 2, 3, secret_.c_str(), nullptr));
    ASSERT_EQ(0, radConfAddAcctServ("h", 1, 2, 3, secret_.c_str()));
    EXPECT_EQ(2U, liveBlocksWithText());
    EXPECT_EQ(0, radConfDelAuthServ());
    EXPECT_EQ(1U, liveBlocksWithText());
    EXPECT_EQ(0, radConfDelAcctServ());
    EXPECT_EQ(0U, liveBlocksWithText());
}

TEST_F(SharedSecret, IsWipedWithItsServer) {
    ASSERT_EQ(0, radConfAddAuthServ("h0", 1, 2, 3, secret_.c_str(), nullptr));
    ASSERT_EQ(0, radConfAddAuthServ("h1", 1, 2, 3, secret_.c_str(), nullptr));
    ASSERT_EQ(0, radAuthServRowIdSet("h1", 0, 7, 8));
    EXPECT_EQ(0, radConfDelAuthServer("h0"));
    EXPECT_EQ(1U, liveBlocksWithText());
    EXPECT_EQ(0, radConfDelAuthServByRowId(7, 8));
    EXPECT_EQ(0U, liveBlocksWithText());
}

TEST_F(SharedSecret, IsWipedFromTheTextOfAList) {
    const std::string list = "h0:" + secret_ + ",h1:1812:5:3:" + secret_ + ":nas";
    ASSERT_EQ(0, radConfSetServers(list.c_str(), RAD_SERVER_AUTH));
    EXPECT_EQ(2U, liveBlocksWithText());
    EXPECT_EQ(-1, radConfSetServers(("h2," + list).c_str(), RAD_SERVER_AUTH));
    EXPECT_EQ(2U, liveBlocksWithText());
}

TEST_F(SharedSecret, IsWipedWhenTheFileIsReadAgain) {
    const TemporaryRoot root;
    root.write("/var/radius.conf", "authserver h:" + secret_ + "\nacctserver h:" + secret_ + "\n");
    ASSERT_EQ(0, radConfigure("/var/radius.conf"));
    EXPECT_EQ(2U, liveBlocksWithText());
    ASSERT_EQ(0, radConfigure("/var/radius.conf"));
    EXPECT_EQ(2U, liveBlocksWithText());
    EXPECT_EQ(-1, radConfigure("/var/missing.conf"));
    EXPECT_EQ(0U, liveBlocksWithText());
}

}  // namespace
}  // namespace lanyard::test::secrets_test
