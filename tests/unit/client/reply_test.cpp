// The library's own processing of each attribute of a reply.
#include <algorithm>
#include <iterator>
#include <string>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/dict.h>

#include "tests/support/test.h"
#include "tests/unit/attr/attr_test.h"

namespace lanyard::test::reply_test {
namespace {

using testing::ElementsAre;

constexpr const char *kSecret = "xyzzy5461";
std::string processing(const char *name) {
    return std::string("trace radPairUnpackDefault> Processing attribute: ") + name;
}

class ReplyTest : public AttrTest {
  protected:
    // A decoded reply to the request.
    struct Reply {
        explicit Reply(ByteView bytes) : packet(bytes) {
            RadPair *pairs = nullptr;
            EXPECT_EQ(0, radPairGen(packet.as<RadPacket>(), &pairs));
            list.reset(pairs);
        }

        GuardedBuffer packet;
        PairList list;
    };

    [[nodiscard]] Bytes replyBytes(const Attributes &attributes,
                                   const ReplyFaults &faults = {}) const {
        return makeReply(11, request_, kSecret, attributes, faults);
    }

    // As the transport does it: every pair in order, up to the first that is refused.
    int unpack(Reply &reply) {
        GuardedBuffer request(request_);
        request.makeReadOnly();
        log_.clear();
        int status = 0;
        for (RadPair *pair = reply.list.get(); pair != nullptr && status == 0;
             pair = radPairNext(pair)) {
            status = radPairUnpackDefault(pair, reply.list.get(), reply.packet.as<RadPacket>(),
                                          request.as<RadPacket>(), kSecret);
        }
        return status;
    }

    // One pair of its own as the whole list, with everything else in place.
    int unpackAlone(RadPair *pair) {
        Reply reply(replyBytes({}));
        GuardedBuffer request(request_);
        log_.clear();
        return radPairUnpackDefault(pair, pair, reply.packet.as<RadPacket>(),
                                    request.as<RadPacket>(), kSecret);
    }

    const Bytes authenticator_ = "0f403f9473978057bd83d5cb98f4227a"_hex;
    const Bytes request_ = makeRequest(7, authenticator_, kSecret, Attributes().addText(1, "nemo"));
};

TEST_F(ReplyTest, NothingIsNoPairAndNoList) {
    const PairList pair(radPairNew(RAD_ATTR_STATE, "x", 1));
    RadPacket packet{};
    EXPECT_EQ(-1, radPairUnpackDefault(nullptr, pair.get(), &packet, &packet, kSecret));
    EXPECT_EQ(-1, radPairUnpackDefault(pair.get(), nullptr, &packet, &packet, kSecret));
    EXPECT_LOG(log_);
}

TEST_F(ReplyTest, OtherAttributesPassUntouched) {
    const PairList pair(radPairNew(RAD_ATTR_STATE, "x", 1));
    for (const int type : {0, 1, 7}) {
        pair->type = type;
        for (int attrNum = -1; attrNum <= 600; ++attrNum) {
            if (attrNum == 26 || attrNum == 79 || attrNum == 80) {
                continue;
            }
            pair->attrNum = attrNum;
            EXPECT_EQ(0, radPairUnpackDefault(pair.get(), pair.get(), nullptr, nullptr, nullptr));
        }
    }
    EXPECT_STREQ("x", pair->strValue);
    EXPECT_LOG(log_);
}

// EAP-Message.

TEST_F(ReplyTest, EapMessageNeedsAMessageAuthenticator) {
    const Attributes first = Attributes().add(79, "03"_hex).addText(18, "hello");
    const Attributes last = Attributes().addText(18, "hello").add(79, "03"_hex);
    for (const Attributes &attributes : {first, last}) {
        Reply reply(replyBytes(attributes));
        EXPECT_EQ(-1, unpack(reply));
        EXPECT_LOG(log_, processing("EAP-Message"), processing("EAP-Message"),
                   "error radPairUnpackDefault: EAP-Message Attribute received without "
                   "Message-Authenticator");
    }
}

TEST_F(ReplyTest, EapMessageBesideAMessageAuthenticatorPassesInAnyOrder) {
    const std::string verified = "trace radCheckMsgAuth> Verified Message-Authenticator";
    Reply before(replyBytes(Attributes().add(79, "03"_hex).addMessageAuthenticator()));
    EXPECT_EQ(0, unpack(before));
    EXPECT_LOG(log_, processing("EAP-Message"), processing("EAP-Message"),
               processing("Message-Authenticator"), verified);
    Reply after(replyBytes(Attributes().addMessageAuthenticator().add(79, "03"_hex)));
    EXPECT_EQ(0, unpack(after));
    EXPECT_LOG(log_, processing("Message-Authenticator"), verified, processing("EAP-Message"),
               processing("EAP-Message"));
}

TEST_F(ReplyTest, EapMessageNeedsNothingElse) {
    RadPair *list = nullptr;
    RadPair *eap = radPairAdd(&list, 79, "x", 1);
    radPairAdd(&list, 80, Bytes(16).data(), 16);
    const PairList owner(list);
    EXPECT_EQ(0, radPairUnpackDefault(eap, list, nullptr, nullptr, nullptr));
    EXPECT_LOG(log_, processing("EAP-Message"), processing("EAP-Message"));
}

TEST_F(ReplyTest, EapFragmentsStayPairsOfTheirOwn) {
    Reply reply(replyBytes(
        Attributes().add(79, Bytes(253, 1)).add(79, Bytes(7, 2)).addMessageAuthenticator()));
    EXPECT_EQ(0, unpack(reply));
    const auto attributes = attributesOf(reply.list.get());
    ASSERT_EQ(3U, attributes.size());
    EXPECT_EQ((Attribute{79, Bytes(253, 1)}), attributes[0]);
    EXPECT_EQ((Attribute{79, Bytes(7, 2)}), attributes[1]);
}

TEST_F(ReplyTest, LogShowsTheNameOfThePair) {
    ASSERT_EQ(0, radDictAddAttr("Extensible-Auth 79 string"));
    const PairList pair(radPairNew(79, "x", 1));
    EXPECT_EQ(-1, radPairUnpackDefault(pair.get(), pair.get(), nullptr, nullptr, nullptr));
    EXPECT_THAT(log_.texts(128), ElementsAre("Processing attribute: Extensible-Auth\n",
                                             "Processing attribute: Extensible-Auth\n"));
}

// Message-Authenticator.

TEST_F(ReplyTest, MessageAuthenticatorIsVerified) {
    const Bytes bytes = replyBytes(Attributes().addText(18, "hi").addMessageAuthenticator());
    Reply reply(bytes);
    EXPECT_EQ(0, unpack(reply));
    EXPECT_LOG(log_, processing("Message-Authenticator"),
               "trace radCheckMsgAuth> Verified Message-Authenticator");
    EXPECT_BYTES_EQ(bytes, reply.packet.bytes());
}

TEST_F(ReplyTest, WrongMessageAuthenticatorIsRefused) {
    const Bytes bytes =
        replyBytes(Attributes().addMessageAuthenticator(), {.wrongMessageAuthenticator = true});
    Reply reply(bytes);
    EXPECT_EQ(-1, unpack(reply));
    EXPECT_LOG(log_, processing("Message-Authenticator"),
               "error radCheckMsgAuth> radCheckMsgAuth:Invalid Message-Authenticator in RADIUS "
               "server reply");
    EXPECT_BYTES_EQ(bytes, reply.packet.bytes());
}

// Every byte that the digest covers. The reply's own authenticator is not among them: the
// request's stands in for it.
TEST_F(ReplyTest, EveryChangedByteIsSeen) {
    const Bytes bytes =
        replyBytes(Attributes().addText(18, "hello").add(24, "0102"_hex).addMessageAuthenticator());
    for (size_t at = 0; at < bytes.size(); ++at) {
        const bool isLengthField = at == 2 || at == 3;
        const bool isAuthenticator = at >= 4 && at < kHeaderSize;
        const bool isHeaderOfAttribute =
            at == 20 || at == 21 || at == 27 || at == 28 || at == 31 || at == 32;
        if (isLengthField || isHeaderOfAttribute) {
            continue;
        }
        Reply reply(bytes);
        reply.packet.data()[at] ^= 1;
        EXPECT_EQ(isAuthenticator ? 0 : -1, unpack(reply)) << at;
    }
}

TEST_F(ReplyTest, SecretAndRequestMakeTheDigest) {
    const Bytes bytes = replyBytes(Attributes().addMessageAuthenticator());
    for (const size_t changed : {size_t{4}, size_t{19}}) {
        Reply reply(bytes);
        GuardedBuffer request(request_);
        request.data()[changed] ^= 1;
        EXPECT_EQ(-1, radPairUnpackDefault(reply.list.get(), reply.list.get(),
                                           reply.packet.as<RadPacket>(), request.as<RadPacket>(),
                                           kSecret));
    }
    Reply reply(bytes);
    GuardedBuffer request(request_);
    EXPECT_EQ(-1,
              radPairUnpackDefault(reply.list.get(), reply.list.get(), reply.packet.as<RadPacket>(),
                                   request.as<RadPacket>(), "xyzzy5462"));
}

TEST_F(ReplyTest, MessageAuthenticatorNeedsReplySecretAndRequest) {
    const Bytes bytes = replyBytes(Attributes().addMessageAuthenticator());
    Reply reply(bytes);
    GuardedBuffer request(request_);
    auto *replyPacket = reply.packet.as<RadPacket>();
    auto *requestPacket = request.as<RadPacket>();
    RadPair *pair = reply.list.get();
    log_.clear();
    EXPECT_EQ(-1, radPairUnpackDefault(pair, pair, nullptr, requestPacket, kSecret));
    EXPECT_EQ(-1, radPairUnpackDefault(pair, pair, replyPacket, nullptr, kSecret));
    EXPECT_EQ(-1, radPairUnpackDefault(pair, pair, replyPacket, requestPacket, nullptr));
    EXPECT_LOG(log_);
    EXPECT_BYTES_EQ(bytes, reply.packet.bytes());
}

TEST_F(ReplyTest, MessageAuthenticatorHas16Bytes) {
    for (const size_t length : {size_t{0}, size_t{14}, size_t{15}, size_t{17}, size_t{253}}) {
        // An empty one takes the text after it, of which there is none.
        const Bytes bytes = replyBytes(Attributes().addText(18, "x").add(80, Bytes(length)));
        Reply reply(bytes);
        EXPECT_EQ(-1, unpack(reply));
        EXPECT_LOG(
            log_, processing("Message-Authenticator"),
            "error radCheckMsgAuth: Invalid Message-Authenticator length inRADIUS server reply");
        // The reply keeps the request's authenticator, and all else as it was.
        Bytes expected = bytes;
        std::copy(authenticator_.begin(), authenticator_.end(), expected.begin() + 4);
        EXPECT_BYTES_EQ(expected, reply.packet.bytes());
    }
}

TEST_F(ReplyTest, MessageAuthenticatorMustLieInThePacket) {
    const PairList pair(radPairNew(RAD_ATTR_MESSAGE_AUTHENTICATOR, Bytes(16).data(), 16));
    for (size_t present = 0; present < 16; ++present) {
        const Bytes bytes =
            makePacket(2, 7, Bytes(16, 0xbb),
                       Attributes().addRaw(concatenate({"5012"_hex, Bytes(present, 0x11)})));
        GuardedBuffer reply(bytes);
        GuardedBuffer request(request_);
        log_.clear();
        EXPECT_EQ(-1, radPairUnpackDefault(pair.get(), pair.get(), reply.as<RadPacket>(),
                                           request.as<RadPacket>(), kSecret));
        EXPECT_PROBLEMS(
            log_,
            "error radCheckMsgAuth: Invalid Message-Authenticator length inRADIUS server reply");
        Bytes expected = bytes;
        std::copy(authenticator_.begin(), authenticator_.end(), expected.begin() + 4);
        EXPECT_BYTES_EQ(expected, reply.bytes());
    }
}

TEST_F(ReplyTest, PacketWithoutTheAttributeOfThePairIsRefused) {
    const PairList pair(radPairNew(RAD_ATTR_MESSAGE_AUTHENTICATOR, Bytes(16).data(), 16));
    EXPECT_EQ(-1, unpackAlone(pair.get()));
    EXPECT_LOG(log_, processing("Message-Authenticator"),
               "error radCheckMsgAuth: NO Message-Authenticator in RADIUS server reply");
}

TEST_F(ReplyTest, SearchForTheMessageAuthenticatorTellsItsOwnTroubles) {
    const PairList pair(radPairNew(RAD_ATTR_MESSAGE_AUTHENTICATOR, Bytes(16).data(), 16));
    GuardedBuffer reply(makePacket(2, 7, Bytes(16), Attributes().addRaw("0101 5012"_hex)));
    GuardedBuffer request(request_);
    EXPECT_EQ(-1, radPairUnpackDefault(pair.get(), pair.get(), reply.as<RadPacket>(),
                                       request.as<RadPacket>(), kSecret));
    EXPECT_LOG(log_, processing("Message-Authenticator"),
               "error radPairLocate: Attribute(1) has invalid length",
               "error radCheckMsgAuth: NO Message-Authenticator in RADIUS server reply");
}

// Vendor-Specific.

TEST_F(ReplyTest, KeysAreDecryptedInTheList) {
    const Bytes key = fromText("0123456789abcdef");
    Reply reply(replyBytes(
        Attributes()
            .addVendor(311, RAD_MS_MPPE_SEND_KEY, encryptMppeKey(key, kSecret, authenticator_))
            .addVendor(311, RAD_MS_MPPE_RECV_KEY,
                       encryptMppeKey(fromText("fedcba"), kSecret, authenticator_, 0x9234))));
    const Bytes packetBefore(reply.packet.bytes().begin(), reply.packet.bytes().end());
    EXPECT_EQ(0, unpack(reply));
    EXPECT_LOG(log_, processing("Vendor-Specific"), processing("Vendor-Specific"));
    const Bytes send = valueOf(*reply.list);
    EXPECT_BYTES_EQ("00000137 1024 10"_hex, ByteView(send).first(7));
    EXPECT_BYTES_EQ(key, ByteView(send).subspan(7, 16));
    const Bytes receive = valueOf(*reply.list->next);
    EXPECT_BYTES_EQ("00000137 1114 06 666564636261"_hex, ByteView(receive).first(13));
    EXPECT_BYTES_EQ(packetBefore, reply.packet.bytes());  // the pair is changed, not the packet
}

TEST_F(ReplyTest, AnotherVendorIsAccepted) {
    Reply reply(replyBytes(Attributes().addVendor(9, 1, "0102"_hex)));
    const Bytes before = valueOf(*reply.list);
    EXPECT_EQ(0, unpack(reply));
    EXPECT_LOG(log_, processing("Vendor-Specific"),
               "error radVendorMessage: Unknown Vendor ID received:9");
    EXPECT_BYTES_EQ(before, valueOf(*reply.list));
}

TEST_F(ReplyTest, MalformedVendorSpecificIsRefused) {
    Reply reply(replyBytes(Attributes().add(26, "000001370103"_hex)));
    EXPECT_EQ(-1, unpack(reply));
    EXPECT_LOG(log_, processing("Vendor-Specific"),
               "error radVendorMessage: Invalid Length in Vendor Message");
}

TEST_F(ReplyTest, VendorSpecificNeedsSecretAndRequestAlone) {
    Reply reply(replyBytes(Attributes().addVendor(
        311, RAD_MS_MPPE_SEND_KEY, encryptMppeKey("0102"_hex, kSecret, authenticator_))));
    GuardedBuffer request(request_);
    auto *replyPacket = reply.packet.as<RadPacket>();
    auto *requestPacket = request.as<RadPacket>();
    RadPair *pair = reply.list.get();
    log_.clear();
    EXPECT_EQ(-1, radPairUnpackDefault(pair, pair, replyPacket, requestPacket, nullptr));
    EXPECT_EQ(-1, radPairUnpackDefault(pair, pair, replyPacket, nullptr, kSecret));
    EXPECT_LOG(log_);
    EXPECT_EQ(0, radPairUnpackDefault(pair, pair, nullptr, requestPacket, kSecret));
    EXPECT_BYTES_EQ("020102"_hex, ByteView(valueOf(*pair)).subspan(6, 3));
}

TEST_F(ReplyTest, CutVendorTextIsLookedAtAsFarAsItIsHeld) {
    // The 253 bytes that are held are well-formed of themselves.
    const std::string text = "abcde\xf9" + std::string(294, 'x');
    const PairList pair(radPairNew(RAD_ATTR_VENDOR_SPECIFIC, text.c_str(), -1));
    ASSERT_EQ(300U, pair->numValue);
    EXPECT_EQ(0, unpackAlone(pair.get()));
    EXPECT_LOG(log_, processing("Vendor-Specific"),
               "error radVendorMessage: Unknown Vendor ID received:1633837924");
}

TEST_F(ReplyTest, VendorSpecificOfAnotherTypeIsRefused) {
    const PairList pair(radPairNew(RAD_ATTR_VENDOR_SPECIFIC, "abcde\x02", 6));
    pair->type = kUnknownType;
    EXPECT_EQ(-1, unpackAlone(pair.get()));
    EXPECT_LOGGED(log_, 8, "radPairValue", "radPairValue: unknown attribute type 7\n");
    pair->type = RAD_TYPE_INTEGER;
    EXPECT_EQ(-1, unpackAlone(pair.get()));
    EXPECT_PROBLEMS(log_, "error radVendorMessage: Invalid Length in Vendor Message");
}

}  // namespace
}  // namespace lanyard::test::reply_test
