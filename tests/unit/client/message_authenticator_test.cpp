// The Message-Authenticator of a reply.
#include <initializer_list>
#include <string>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/dict.h>
#include <lanyard/radius/engine.h>

#include "tests/support/test.h"
#include "tests/unit/client/fixture.h"

namespace lanyard::test::message_authenticator_test {
namespace {

constexpr const char *kSecret = "secret";
constexpr size_t kAuthenticatorOffset = 4;

class CheckMessageAuthenticator : public EngineTest {
  protected:
    CheckMessageAuthenticator()
        : authenticator_(fromHex(example::kAuthenticator)),
          request_(makePacket(1, 7, authenticator_)) {}

    Bytes reply(const Attributes &attributes, const ReplyFaults &faults = {}) const {
        return makeReply(2, request_, kSecret, attributes, faults);
    }

    // Checks a packet that an inaccessible page follows, and returns what the packet is then.
    Bytes check(int expected, const Bytes &packet, const char *secret = kSecret) const {
        GuardedBuffer guarded(packet);
        EXPECT_EQ(expected,
                  radCheckMsgAuth(guarded.as<RadPacket>(), secret, authenticator_.data()));
        return {guarded.bytes().begin(), guarded.bytes().end()};
    }

    // The packet with the authenticator of the request in its header.
    Bytes withRequestAuthenticator(Bytes packet) const {
        std::copy(authenticator_.begin(), authenticator_.end(),
                  packet.begin() + kAuthenticatorOffset);
        return packet;
    }

    ConfiguredLibrary library_;
    const Bytes authenticator_;
    const Bytes request_;
};

TEST_F(CheckMessageAuthenticator, AcceptsARightOneAndLeavesTheReplyAsItWas) {
    for (const Attributes &attributes :
         {Attributes().addMessageAuthenticator(),
          Attributes().addText(18, "Hello").addMessageAuthenticator(),
          Attributes().addMessageAuthenticator().addText(18, "Hello").addInteger(27, 60)}) {
        const Bytes packet = reply(attributes);
        const LogRecorder log;
        EXPECT_BYTES_EQ(packet, check(0, packet));
        EXPECT_LOG(log, "trace radCheckMsgAuth> Verified Message-Authenticator");
    }
}

// More than the library keeps the keys of; long ones are digested first.
TEST_F(CheckMessageAuthenticator, ManySecretsInTurn_EachChecksWithItsOwn) {
    for (int turn = 0; turn < 3; ++turn) {
        for (size_t length = 0; length < 200; length += 8) {
            const std::string secret(length, 's');
            const Bytes packet =
                makeReply(2, request_, secret, Attributes().addMessageAuthenticator());
            check(0, packet, secret.c_str());
            check(-1, packet, (secret + '\1').c_str());
        }
    }
}

TEST_F(CheckMessageAuthenticator, SecretKnownBefore_CountsAfterARestart) {
    const Bytes packet = reply(Attributes().addMessageAuthenticator());
    check(0, packet);
    EXPECT_EQ(0, radLibExit());
    EXPECT_EQ(0, radLibInit(nullptr));
    EXPECT_EQ(0, radDictLoad(nullptr));
    check(0, packet);
    check(-1, packet, "Secret");
}

TEST_F(CheckMessageAuthenticator, RefusesAWrongOneAndLeavesTheReplyAsItWas) {
    const Bytes packet = reply(Attributes().addText(18, "Hello").addMessageAuthenticator(),
                               {.wrongMessageAuthenticator = true});
    const LogRecorder log;
    EXPECT_BYTES_EQ(packet, check(-1, packet));
    EXPECT_LOG(log,
               "error radCheckMsgAuth> radCheckMsgAuth:Invalid Message-Authenticator in RADIUS "
               "server reply");
}

TEST_F(CheckMessageAuthenticator, CoversEveryByteOfTheReply) {
    const Bytes packet =
        reply(Attributes().addText(18, "Hello").addMessageAuthenticator().addInteger(27, 60));
    check(0, packet);
    for (size_t i = 0; i < packet.size(); ++i) {
        const bool inLength = i == 2 || i == 3;
        const bool inAuthenticator = i >= kAuthenticatorOffset && i < kHeaderSize;
        const bool inAttributeHeader = i == 20 || i == 21 || i == 27 || i == 28;
        if (inLength || inAuthenticator || inAttributeHeader) {
            continue;  // not covered, or no longer a packet with that attribute
        }
        Bytes changed = packet;
        changed[i] ^= 1U;
        const LogRecorder log;
        check(-1, changed);
        EXPECT_LOGGED(log, 8, "radCheckMsgAuth",
                      "radCheckMsgAuth:Invalid Message-Authenticator in RADIUS server reply\n");
    }
}

TEST_F(CheckMessageAuthenticator, DependsOnSecretAndRequest) {
    const Bytes packet = reply(Attributes().addMessageAuthenticator());
    check(-1, packet, "other");
    Bytes other = packet;
    const Bytes zeros(16, 0);
    EXPECT_EQ(-1,
              radCheckMsgAuth(reinterpret_cast<RadPacket *>(other.data()), kSecret, zeros.data()));
}

TEST_F(CheckMessageAuthenticator, TakesTheFirstOfTwo) {
    const Bytes packet = reply(Attributes().addMessageAuthenticator().add(80, Bytes(16, 0x11)));
    EXPECT_BYTES_EQ(packet, check(0, packet));
}

TEST_F(CheckMessageAuthenticator, RefusesAReplyWithoutOneAndLeavesTheRequestAuthenticatorInIt) {
    for (const Attributes &attributes :
         {Attributes(), Attributes().addText(18, "Hello"),
          Attributes().addRaw("50"_hex)}) {  // the type byte alone is no attribute
        const Bytes packet = reply(attributes);
        const LogRecorder log;
        EXPECT_BYTES_EQ(withRequestAuthenticator(packet), check(-1, packet));
        EXPECT_LOG(log, "error radCheckMsgAuth: NO Message-Authenticator in RADIUS server reply");
    }
}

TEST_F(CheckMessageAuthenticator, RefusesAnotherLengthAndLeavesTheRequestAuthenticatorInTheReply) {
    for (const size_t valueSize : {0U, 14U, 15U, 17U, 253U}) {
        const Bytes packet = reply(Attributes().add(80, Bytes(valueSize, 0x11)));
        const LogRecorder log;
        EXPECT_BYTES_EQ(withRequestAuthenticator(packet), check(-1, packet));
        EXPECT_LOG(
            log,
            "error radCheckMsgAuth: Invalid Message-Authenticator length inRADIUS server reply");
    }
}

TEST_F(CheckMessageAuthenticator, RefusesOneThatRunsPastThePacket) {
    for (size_t present = 0; present < 16; ++present) {
        const Bytes cut = concatenate({"5012"_hex, Bytes(present, 0x11)});
        const Bytes packet = reply(Attributes().addText(18, "Hello").addRaw(cut));
        const LogRecorder log;
        EXPECT_BYTES_EQ(withRequestAuthenticator(packet), check(-1, packet));
        EXPECT_LOG(
            log,
            "error radCheckMsgAuth: Invalid Message-Authenticator length inRADIUS server reply");
    }
}

TEST_F(CheckMessageAuthenticator, LooksAtNothingAfterALengthFieldThatIsTooShortForAHeader) {
    for (const uint8_t length : std::initializer_list<uint8_t>{0, 10, 19}) {
        Bytes packet = makePacket(2, 7, Bytes(16, 0x22));
        packet[3] = length;
        const LogRecorder log;
        EXPECT_BYTES_EQ(withRequestAuthenticator(packet), check(-1, packet));
        EXPECT_LOGGED(log, 8, "radCheckMsgAuth",
                      "radCheckMsgAuth: NO Message-Authenticator in RADIUS server reply\n");
    }
}

TEST_F(CheckMessageAuthenticator, RefusesMissingArguments) {
    const Bytes packet = reply(Attributes().addMessageAuthenticator());
    Bytes kept = packet;
    auto *header = reinterpret_cast<RadPacket *>(kept.data());
    const LogRecorder log;
    EXPECT_EQ(-1, radCheckMsgAuth(nullptr, kSecret, authenticator_.data()));
    EXPECT_EQ(-1, radCheckMsgAuth(header, nullptr, authenticator_.data()));
    EXPECT_EQ(-1, radCheckMsgAuth(header, kSecret, nullptr));
    EXPECT_BYTES_EQ(packet, kept);
    EXPECT_LOG(log);
}

}  // namespace
}  // namespace lanyard::test::message_authenticator_test
