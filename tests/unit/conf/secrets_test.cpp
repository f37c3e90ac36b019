// No block of memory goes back to the partition with a shared secret in it. This program has a
// partition of its own in place of the OS layer's: it looks at what it is given back.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <string_view>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/frame.h>
#include <palcore.h>

#include "tests/support/test.h"

namespace {

constexpr std::string_view kSecret = "xyzzy-5551-plugh";

struct Partition {
    std::map<void *, size_t> blocks;
    unsigned released = 0;  // blocks that were released
    unsigned leaking = 0;   // blocks that were released with the secret in them
};

Partition partition;

bool holdsSecret(const void *block, size_t size) {
    const std::string_view content(static_cast<const char *>(block), size);
    return content.find(kSecret) != std::string_view::npos;
}

// Blocks in use that hold the secret now.
long blocksWithSecret() {
    return std::count_if(partition.blocks.begin(), partition.blocks.end(),
                         [](const auto &entry) { return holdsSecret(entry.first, entry.second); });
}

}  // namespace

void *palMemPartAlloc(PalMemPartId /*part*/, uint32_t size) {
    void *block = std::calloc(1, size);
    partition.blocks.emplace(block, size);
    return block;
}

char *palMemPartStrDup(PalMemPartId part, const char *text) {
    const size_t size = std::strlen(text) + 1;
    void *copy = palMemPartAlloc(part, static_cast<uint32_t>(size));
    std::memcpy(copy, text, size);
    return static_cast<char *>(copy);
}

int palMemPartFree(PalMemPartId /*part*/, void *block) {
    const auto entry = partition.blocks.find(block);
    if (entry == partition.blocks.end()) {
        return block == nullptr ? 0 : -1;
    }
    ++partition.released;
    partition.leaking += holdsSecret(entry->first, entry->second) ? 1 : 0;
    partition.blocks.erase(entry);
    std::free(block);
    return 0;
}

namespace lanyard::test::secrets_test {
namespace {

class SharedSecret : public testing::Test {
  protected:
    void SetUp() override {
        partition.released = 0;
        partition.leaking = 0;
    }

    void TearDown() override {
        EXPECT_EQ(0, radDeconfigure());
        EXPECT_TRUE(partition.blocks.empty());
        EXPECT_LT(0U, partition.released);
        EXPECT_EQ(0U, partition.leaking);
    }

    const std::string secret_{kSecret};
};

TEST_F(SharedSecret, IsWipedWithTheWholeList) {
    ASSERT_EQ(0, radConfAddAuthServ("h", 1, 2, 3, secret_.c_str(), nullptr));
    ASSERT_EQ(0, radConfAddAcctServ("h", 1, 2, 3, secret_.c_str()));
    EXPECT_EQ(2, blocksWithSecret());
    EXPECT_EQ(0, radConfDelAuthServ());
    EXPECT_EQ(1, blocksWithSecret());
    EXPECT_EQ(0, radConfDelAcctServ());
    EXPECT_EQ(0, blocksWithSecret());
}

TEST_F(SharedSecret, IsWipedWithItsServer) {
    ASSERT_EQ(0, radConfAddAuthServ("h0", 1, 2, 3, secret_.c_str(), nullptr));
    ASSERT_EQ(0, radConfAddAuthServ("h1", 1, 2, 3, secret_.c_str(), nullptr));
    ASSERT_EQ(0, radAuthServRowIdSet("h1", 0, 7, 8));
    EXPECT_EQ(0, radConfDelAuthServer("h0"));
    EXPECT_EQ(1, blocksWithSecret());
    EXPECT_EQ(0, radConfDelAuthServByRowId(7, 8));
    EXPECT_EQ(0, blocksWithSecret());
}

TEST_F(SharedSecret, IsWipedFromTheTextOfAList) {
    const std::string list = "h0:" + secret_ + ",h1:1812:5:3:" + secret_ + ":nas";
    ASSERT_EQ(0, radConfSetServers(list.c_str(), RAD_SERVER_AUTH));
    EXPECT_EQ(2, blocksWithSecret());
    EXPECT_EQ(-1, radConfSetServers(("h2," + list).c_str(), RAD_SERVER_AUTH));
    EXPECT_EQ(2, blocksWithSecret());
}

TEST_F(SharedSecret, IsWipedWhenTheFileIsReadAgain) {
    const TemporaryRoot root;
    root.write("/var/radius.conf", "authserver h:" + secret_ + "\nacctserver h:" + secret_ + "\n");
    ASSERT_EQ(0, radConfigure("/var/radius.conf"));
    EXPECT_EQ(2, blocksWithSecret());
    ASSERT_EQ(0, radConfigure("/var/radius.conf"));
    EXPECT_EQ(2, blocksWithSecret());
    EXPECT_EQ(-1, radConfigure("/var/missing.conf"));
    EXPECT_EQ(0, blocksWithSecret());
}

}  // namespace
}  // namespace lanyard::test::secrets_test
