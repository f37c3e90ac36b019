#include "tests/support/reply_forger.h"

#include "tests/support/test.h"

namespace lanyard::test::reply_forger_test {
namespace {

constexpr const char *kSecret = "forger";

Bytes requestWith(uint8_t identifier) {
    return makeRequest(identifier, Bytes(16, identifier), kSecret, Attributes().addText(1, "nemo"));
}
Bytes replyTo(uint8_t identifier) {
    return makeReply(2, requestWith(identifier), kSecret, Attributes().addText(18, "Hello"));
}

TEST(ReplyForger, None_SendsNothing) {
    EXPECT_FALSE(ReplyForger().forge(Forgery::kNone, replyTo(1)));
}

TEST(ReplyForger, Junk_IsNoPacket) {
    const auto forged = ReplyForger().forge(Forgery::kJunk, replyTo(1));
    ASSERT_TRUE(forged);
    EXPECT_GT(kHeaderSize, forged->size());
}

TEST(ReplyForger, Accept_FitsButForItsDigest) {
    const auto forged = ReplyForger().forge(Forgery::kAccept, replyTo(7));
    ASSERT_TRUE(forged);
    EXPECT_EQ("02070014", toHex(ByteView(*forged).first(4)));
    EXPECT_EQ(kHeaderSize, forged->size());
    EXPECT_FALSE(replyIsValid(*forged, requestWith(7), kSecret));
}

TEST(ReplyForger, Digest_IsTheReplyButForIt) {
    const Bytes reply = replyTo(7);
    auto forged = ReplyForger().forge(Forgery::kDigest, reply);
    ASSERT_TRUE(forged);
    EXPECT_FALSE(replyIsValid(*forged, requestWith(7), kSecret));
    std::copy_n(reply.begin() + 4, 16, forged->begin() + 4);
    EXPECT_BYTES_EQ(reply, *forged);
}

TEST(ReplyForger, Foreign_IsTheReplyToAnotherRequest) {
    ReplyForger forger;
    EXPECT_FALSE(forger.forge(Forgery::kForeign, replyTo(7)));
    auto forged = forger.forge(Forgery::kForeign, replyTo(8));
    ASSERT_TRUE(forged);
    EXPECT_EQ(8, forged->at(1));
    EXPECT_FALSE(replyIsValid(*forged, requestWith(8), kSecret));
    forged->at(1) = 7;
    EXPECT_BYTES_EQ(replyTo(7), *forged);
}

TEST(ReplyForger, Share_IsThatOfTheReplies) {
    ReplyForger forger;
    int forged = 0;
    for (int i = 0; i < 1000; ++i) {
        forged += forger.forge(Forgery::kDigest, replyTo(7), 0.2) ? 1 : 0;
    }
    EXPECT_GT(250, forged);
    EXPECT_LT(150, forged);
}

TEST(ReplyForger, ReplyWithoutHeader_IsLeftAlone) {
    EXPECT_FALSE(ReplyForger().forge(Forgery::kDigest, Bytes(19)));
    EXPECT_FALSE(ReplyForger().forge(Forgery::kAccept, Bytes{}));
}

}  // namespace
}  // namespace lanyard::test::reply_forger_test
