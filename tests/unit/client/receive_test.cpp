// Reading and checking one reply.
#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <fcntl.h>
#include <initializer_list>
#include <string>
#include <vector>

#include <lanyard/radius/dict.h>
#include <lanyard/radius/engine.h>

#include "tests/support/test.h"
#include "tests/unit/client/fixture.h"
#include "tests/unit/client/system_calls.h"
#include "tools/file_descriptor.h"

namespace lanyard::test::receive_test {
namespace {

using lanyard::FileDescriptor;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

constexpr const char *kSecret = "secret";
constexpr const char *kHost = "radius.example";

// The client's socket, with a server that has sent its datagrams already.
class ReceiveTest : public EngineTest {
  protected:
    ReceiveTest() : request_(makePacket(1, 7, fromHex(example::kAuthenticator))) {}

    void arrive(ByteView datagram) const {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(client_.port());
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ASSERT_EQ(static_cast<ssize_t>(datagram.size()),
                  sendto(server_.socket(), datagram.data(), datagram.size(), 0,
                         reinterpret_cast<const sockaddr *>(&address), sizeof(address)));
    }

    Bytes reply(uint8_t code, const Attributes &attributes = {},
                const ReplyFaults &faults = {}) const {
        return makeReply(code, request_, secret_, attributes, faults);
    }

    // Reads the datagram that has arrived first. The list is `reply_` then.
    int receive() {
        GuardedBuffer request(request_);
        RadPair stale{};
        RadPair *list = &stale;
        const RadRecvCtx context = this->context();
        const int result = radRecvfromServer(&context, request.as<RadPacket>(), &list);
        EXPECT_NE(&stale, list) << "the list was left as it was";
        reply_.reset(list);
        EXPECT_BYTES_EQ(request_, request.bytes()) << "the request was changed";
        return result;
    }
    int receive(ByteView datagram) {
        arrive(datagram);
        return receive();
    }

    RadRecvCtx context() {
        return {.socket = client_.socket(), .host = kHost, .source = &source_, .secret = secret_};
    }

    // Expects one refusal, with nothing left behind.
    void expectRefused(ByteView datagram, const char *function, const std::string &text) {
        const LogRecorder log;
        const size_t blocksBefore = liveBlocks();
        EXPECT_EQ(-1, receive(datagram));
        EXPECT_EQ(nullptr, reply_);
        EXPECT_EQ(blocksBefore, liveBlocks());
        EXPECT_ONLY_PROBLEM(log, 8, function, text);
        EXPECT_THAT(client_.received(), IsEmpty()) << "the datagram was left in the socket";
    }
    void expectLengthRefused(ByteView datagram, size_t received, size_t length) {
        expectRefused(datagram, "radCheckReply",
                      "radCheckReply: Received (" + std::to_string(received) +
                          ") octets doesn't match length in packet: " + std::to_string(length) +
                          "\n");
    }

    ConfiguredLibrary library_;
    const SilentPort server_;
    const SilentPort client_;
    const char *secret_ = kSecret;
    Bytes request_;
    sockaddr_in source_{};
    PairList reply_;
};

TEST_F(ReceiveTest, ReadsTheReplyOfTheRfc) {
    secret_ = example::kSecret;
    request_ = fromHex(example::kRequest);
    EXPECT_EQ(2, receive(fromHex(example::kReply)));
    EXPECT_THAT(attrNums(reply_.get()), ElementsAre(6, 15, 14));
    EXPECT_EQ(1U, reply_->numValue);
    EXPECT_EQ(0U, reply_->next->numValue);
    EXPECT_EQ(0xc0a80103U, reply_->next->next->numValue);
}

TEST_F(ReceiveTest, LogsEachStepInOrder) {
    const Bytes datagram = reply(2, Attributes().addText(18, "Hello").addMessageAuthenticator());
    const LogRecorder log;
    EXPECT_EQ(2, receive(datagram));
    EXPECT_LOG(log, "trace radRecvfromServer> Receiving Reply Packet....",
               "trace radCheckReply> Verified Reply Packet Integrity",
               "trace radPairGen> Receiving attribute: Reply-Message",
               "trace radPairGen> Receiving attribute: Message-Authenticator",
               "trace radCheckReply> Generated Reply Attribute-Value pairs",
               "trace radPairUnpackDefault> Processing attribute: Message-Authenticator",
               "trace radCheckMsgAuth> Verified Message-Authenticator");
    EXPECT_THAT(log.dumps(), ElementsAre(Dumped(7, 256, "RADIUS Rx Buffer", datagram)));
}

TEST_F(ReceiveTest, YieldsTheCodeWhateverItIs) {
    for (const int code : {0, 1, 2, 3, 4, 5, 11, 99, 255}) {
        EXPECT_EQ(code, receive(reply(static_cast<uint8_t>(code))));
        EXPECT_EQ(nullptr, reply_);
    }
}

TEST_F(ReceiveTest, TellsWhereTheReplyCameFrom) {
    EXPECT_EQ(2, receive(reply(2)));
    EXPECT_EQ(htonl(INADDR_LOOPBACK), source_.sin_addr.s_addr);
    EXPECT_EQ(htons(server_.port()), source_.sin_port);
}

TEST_F(ReceiveTest, ReadsOneDatagramAlone) {
    arrive(reply(3));
    arrive(reply(2));
    EXPECT_EQ(3, receive());
    EXPECT_EQ(1U, client_.received().size());
}

TEST_F(ReceiveTest, NeedsOneBufferForAReply) {
    const Bytes datagram = reply(2);
    const size_t allocationsBefore = allocationCount();
    EXPECT_EQ(2, receive(datagram));
    EXPECT_EQ(allocationsBefore + 1, allocationCount());
}

// What makes a reply of that many bytes.
Attributes attributesForSize(size_t size) {
    Attributes attributes;
    for (size_t left = size - kHeaderSize; left > 0;) {
        const size_t length = left <= 255 ? left : std::min<size_t>(left - 2, 255);
        attributes.add(18, Bytes(length - 2, 'x'));
        left -= length;
    }
    return attributes;
}

TEST_F(ReceiveTest, TakesAReplyOf4096Bytes) {
    const Bytes datagram = reply(2, attributesForSize(4096));
    ASSERT_EQ(4096U, datagram.size());
    EXPECT_EQ(2, receive(datagram));
    EXPECT_EQ(16U, attrNums(reply_.get()).size());
}

TEST_F(ReceiveTest, RefusesAReplyOfMoreThan4096BytesWithTheLengthMessage) {
    // No more than 4096 bytes and the length of the secret are taken.
    for (const size_t size : {4097U, 4101U, 4102U, 4103U, 5000U}) {
        const Bytes datagram = reply(2, attributesForSize(size));
        ASSERT_EQ(size, datagram.size());
        expectLengthRefused(datagram, std::min<size_t>(size, 4102), size);
    }
}

TEST_F(ReceiveTest, RefusesALengthFieldThatIsNotWhatWasReceived) {
    // 40 bytes arrive; no more than Length and the length of the secret are taken.
    const Attributes attributes = Attributes().add(18, Bytes(18, 'x'));
    for (const uint16_t length : std::initializer_list<uint16_t>{34, 38, 39, 41, 100, 4096}) {
        expectLengthRefused(reply(2, attributes, {.lengthField = length}), 40, length);
    }
    for (const uint16_t length : std::initializer_list<uint16_t>{0, 10, 19, 20, 33}) {
        expectLengthRefused(reply(2, attributes, {.lengthField = length}), length + 6U, length);
    }
    for (const uint16_t length : std::initializer_list<uint16_t>{4097, 65535}) {
        expectLengthRefused(reply(2, attributes, {.lengthField = length}), 40, length);
    }
}

TEST_F(ReceiveTest, RefusesTrailingBytes) {
    Bytes datagram = reply(2);
    datagram.push_back(0);
    expectLengthRefused(datagram, 21, 20);
}

TEST_F(ReceiveTest, SeesTrailingBytesWithoutASecretAsWell) {
    secret_ = "";
    EXPECT_EQ(2, receive(reply(2)));
    Bytes datagram = reply(2);
    datagram.push_back(0);
    expectLengthRefused(datagram, 21, 20);
    expectLengthRefused(reply(2, Attributes(), {.lengthField = 0}), 1, 0);
}

TEST_F(ReceiveTest, RefusesAHeaderAloneWithAShorterLengthField) {
    for (const uint16_t length : std::initializer_list<uint16_t>{0, 10, 13}) {
        expectLengthRefused(reply(2, Attributes(), {.lengthField = length}), length + 6U, length);
    }
    for (const uint16_t length : std::initializer_list<uint16_t>{14, 19, 21, 65535}) {
        expectLengthRefused(reply(2, Attributes(), {.lengthField = length}), 20, length);
    }
}

TEST_F(ReceiveTest, ConsumesAndRefusesADatagramThatIsTooShortForAHeader) {
    for (const size_t size : {0U, 1U, 4U, 19U}) {
        const Bytes datagram(size, 0x14);
        arrive(datagram);
        arrive(reply(2));
        const LogRecorder log;
        EXPECT_EQ(-1, receive());
        EXPECT_EQ(nullptr, reply_);
        EXPECT_THAT(log.lines(),
                    ElementsAre(Logged(7, 8, "radRecvfromServer",
                                       MatchesRegex("radRecvfromServer: Packet too small from "
                                                    "radius\\.example:[0-9]+: .+\n"))));
        EXPECT_THAT(log.dumps(), IsEmpty());
        EXPECT_EQ(2, receive()) << "the next datagram";
    }
}

TEST_F(ReceiveTest, RefusesAnotherIdentifier) {
    expectRefused(reply(2, Attributes(), {.wrongIdentifier = true}), "radCheckReply",
                  "radCheckReply: Expected id: 7, received id: 8\n");
    request_[1] = 255;
    expectRefused(reply(2, Attributes(), {.wrongIdentifier = true}), "radCheckReply",
                  "radCheckReply: Expected id: 255, received id: 0\n");
}

TEST_F(ReceiveTest, RefusesAnotherAuthenticator) {
    const std::string text = "radCheckReply: received invalid reply digest from RADIUS server\n";
    expectRefused(reply(2, Attributes(), {.wrongAuthenticator = true}), "radCheckReply", text);
    expectRefused(makeReply(2, request_, "other"), "radCheckReply", text);
    Bytes changed = reply(2, Attributes().addText(18, "Hello"));
    changed.back() ^= 1U;
    expectRefused(changed, "radCheckReply", text);
    changed = reply(3);
    changed[0] = 2;
    expectRefused(changed, "radCheckReply", text);
}

TEST_F(ReceiveTest, AuthenticatorWrongInOneByte_IsRefused) {
    constexpr size_t kStart = 4;
    const Bytes right = reply(2, Attributes().addText(18, "Hello"));
    for (size_t index = kStart; index < kStart + RAD_DIGEST_SIZE; ++index) {
        SCOPED_TRACE(index);
        Bytes changed = right;
        changed[index] ^= 1U;
        expectRefused(changed, "radCheckReply",
                      "radCheckReply: received invalid reply digest from RADIUS server\n");
    }
}

TEST_F(ReceiveTest, ChecksLengthThenIdentifierThenAuthenticator) {
    Bytes datagram = reply(2, Attributes(), {.wrongIdentifier = true, .wrongAuthenticator = true});
    expectRefused(datagram, "radCheckReply", "radCheckReply: Expected id: 7, received id: 8\n");
    datagram.push_back(0);
    expectLengthRefused(datagram, 21, 20);
}

TEST_F(ReceiveTest, RefusesWhatCannotBeDecoded) {
    expectRefused(reply(2, Attributes().addText(18, "Hello").addRaw("1201"_hex)), "radPairGen",
                  "radPairGen: Attribute(18) has invalid length\n");
    expectRefused(reply(2, Attributes().addText(18, "Hello").addRaw("1205aa"_hex)), "radPairGen",
                  "radPairGen: Length in packet header does not match total length of "
                  "attributes\n");
}

TEST_F(ReceiveTest, RefusesAWrongMessageAuthenticator) {
    expectRefused(reply(2, Attributes().addText(18, "Hello").addMessageAuthenticator(),
                        {.wrongMessageAuthenticator = true}),
                  "radCheckMsgAuth",
                  "radCheckMsgAuth:Invalid Message-Authenticator in RADIUS server reply\n");
    expectRefused(reply(2, Attributes().add(80, Bytes(15, 0x11))), "radCheckMsgAuth",
                  "radCheckMsgAuth: Invalid Message-Authenticator length inRADIUS server reply\n");
}

TEST_F(ReceiveTest, RefusesEapMessageWithoutMessageAuthenticator) {
    const std::string text =
        "radPairUnpackDefault: EAP-Message Attribute received without Message-Authenticator\n";
    expectRefused(reply(11, Attributes().add(79, "01020304"_hex).addText(18, "Hello")),
                  "radPairUnpackDefault", text);
    expectRefused(reply(11, Attributes().addText(18, "Hello").add(79, "01020304"_hex)),
                  "radPairUnpackDefault", text);
}

TEST_F(ReceiveTest, TakesEapMessageWithMessageAuthenticatorInAnyOrder) {
    const Bytes eap = "01020304"_hex;
    EXPECT_EQ(11, receive(reply(11, Attributes().add(79, eap).addMessageAuthenticator())));
    EXPECT_THAT(attrNums(reply_.get()), ElementsAre(79, 80));
    EXPECT_EQ(11,
              receive(reply(11, Attributes().addMessageAuthenticator().add(79, eap).add(79, eap))));
    EXPECT_THAT(attrNums(reply_.get()), ElementsAre(80, 79, 79));
}

TEST_F(ReceiveTest, FailsWhenTheSocketCannotBeRead) {
    const FileDescriptor noSocket(open("/dev/null", O_RDWR | O_CLOEXEC), "/dev/null");
    RadRecvCtx context = this->context();
    context.socket = noSocket.get();
    RadPair stale{};
    RadPair *list = &stale;
    const LogRecorder log;
    EXPECT_EQ(-1,
              radRecvfromServer(&context, reinterpret_cast<RadPacket *>(request_.data()), &list));
    EXPECT_EQ(nullptr, list);
    EXPECT_PROBLEMS(log,
                    "error radRecvfromServer: recvfrom() Failed: Socket operation on non-socket");
}

TEST_F(ReceiveTest, LeavesNothingBehindWhenTheDatagramIsGoneAfterThePeek) {
    arrive(reply(2));
    const size_t blocksBefore = liveBlocks();
    const FailingCall failure("recvfrom", EIO, 2);
    EXPECT_EQ(-1, receive());
    EXPECT_TRUE(failure.happened());
    EXPECT_EQ(blocksBefore, liveBlocks());
}

TEST_F(ReceiveTest, RefusesMissingArguments) {
    arrive(reply(2));
    const RadRecvCtx right = context();
    auto *request = reinterpret_cast<RadPacket *>(request_.data());
    RadPair *list = nullptr;
    const LogRecorder log;
    EXPECT_EQ(-1, radRecvfromServer(nullptr, request, &list));
    EXPECT_EQ(-1, radRecvfromServer(&right, nullptr, &list));
    EXPECT_EQ(-1, radRecvfromServer(&right, request, nullptr));
    RadRecvCtx wrong = right;
    wrong.socket = -1;
    EXPECT_EQ(-1, radRecvfromServer(&wrong, request, &list));
    wrong = right;
    wrong.source = nullptr;
    EXPECT_EQ(-1, radRecvfromServer(&wrong, request, &list));
    wrong = right;
    wrong.secret = nullptr;
    EXPECT_EQ(-1, radRecvfromServer(&wrong, request, &list));
    EXPECT_LOG(log);
    EXPECT_EQ(2, receive()) << "the datagram is still there";
}

TEST_F(ReceiveTest, LeavesNothingBehindWhenMemoryIsExhausted) {
    const Bytes datagram =
        reply(2, Attributes().addText(18, "Hello").addInteger(27, 60).addMessageAuthenticator());
    const unsigned failures = forEachFailingAllocation([&] {
        const int result = receive(datagram);
        EXPECT_EQ(allocationFailed() ? -1 : 2, result);
        EXPECT_EQ(allocationFailed(), reply_ == nullptr);
        reply_.reset();
        (void)client_.received();  // what was not read
    });
    EXPECT_EQ(4U, failures) << "the buffer and three pairs";
}

TEST_F(ReceiveTest, ShowsEveryPairToTheHook) {
    const Bytes datagram = reply(2, Attributes().addText(18, "Hello").addInteger(27, 60));
    std::vector<int> visited;
    std::vector<const RadPair *> heads;
    const Hooks hooks({}, [&](RadPair *pair, RadPair *list, RadPacket *packet, RadPacket *request,
                              const char *secret) {
        visited.push_back(pair->attrNum);
        heads.push_back(list);
        const auto *bytes = reinterpret_cast<const uint8_t *>(packet);
        EXPECT_BYTES_EQ(datagram, ByteView(bytes, datagram.size()));
        bytes = reinterpret_cast<const uint8_t *>(request);
        EXPECT_BYTES_EQ(request_, ByteView(bytes, request_.size()));
        EXPECT_STREQ(kSecret, secret);
        return 0;
    });
    EXPECT_EQ(2, receive(datagram));
    EXPECT_THAT(visited, ElementsAre(18, 27));
    EXPECT_THAT(heads, ElementsAre(reply_.get(), reply_.get()));
}

TEST_F(ReceiveTest, SkipsTheDefaultChecksOfWhatTheHookHasHandled) {
    const Bytes eapAlone = reply(11, Attributes().add(79, "01020304"_hex));
    const LogRecorder log;
    int answer = 0;
    const Hooks hooks({}, [&](RadPair * /*pair*/, RadPair * /*list*/, RadPacket * /*reply*/,
                              RadPacket * /*request*/, const char * /*secret*/) { return answer; });
    EXPECT_EQ(11, receive(eapAlone));
    EXPECT_PROBLEMS(log);
    answer = 1;
    EXPECT_EQ(-1, receive(eapAlone));
    EXPECT_PROBLEMS(
        log,
        "error radPairUnpackDefault: EAP-Message Attribute received without Message-Authenticator");
}

TEST_F(ReceiveTest, EndsWithTheHooksOwnErrorAtOnce) {
    const Bytes datagram =
        reply(2, Attributes().addText(18, "a").addInteger(27, 60).addText(18, "b"));
    for (const int error : {-1, 2, 42, -7}) {
        std::vector<int> visited;
        const Hooks hooks({}, [&](const RadPair *pair, RadPair * /*list*/, RadPacket * /*reply*/,
                                  RadPacket * /*request*/, const char * /*secret*/) {
            visited.push_back(pair->attrNum);
            return pair->attrNum == 27 ? error : 1;
        });
        const size_t blocksBefore = liveBlocks();
        EXPECT_EQ(error, receive(datagram));
        EXPECT_EQ(nullptr, reply_);
        EXPECT_EQ(blocksBefore, liveBlocks());
        EXPECT_THAT(visited, ElementsAre(18, 27));
    }
}

TEST_F(ReceiveTest, ChecksByItselfWhenTheHookTakesNoPart) {
    const Hooks hooks([](uint8_t * /*value*/, uint8_t * /*length*/, const RadPair * /*pair*/,
                         const char * /*secret*/, RadPacket * /*request*/) { return 1; });
    EXPECT_EQ(2, receive(reply(2, Attributes().addMessageAuthenticator())));
    EXPECT_EQ(-1, receive(reply(2, Attributes().addMessageAuthenticator(),
                                {.wrongMessageAuthenticator = true})));
}

TEST_F(ReceiveTest, CallsTheHooksAfterARestartAsWell) {
    int calls = 0;
    const Hooks hooks({}, [&](RadPair * /*pair*/, RadPair * /*list*/, RadPacket * /*reply*/,
                              RadPacket * /*request*/, const char * /*secret*/) {
        ++calls;
        return 1;
    });
    ASSERT_EQ(0, radLibExit());
    ASSERT_EQ(0, radLibInit(nullptr));
    ASSERT_EQ(0, radDictLoad(nullptr));
    EXPECT_EQ(2, receive(reply(2, Attributes().addText(18, "Hello"))));
    EXPECT_EQ(1, calls);
    reply_.reset();
    EXPECT_EQ(0, radFuncTblUninstall());
    EXPECT_EQ(2, receive(reply(2, Attributes().addText(18, "Hello"))));
    EXPECT_EQ(1, calls);
}

}  // namespace
}  // namespace lanyard::test::receive_test
