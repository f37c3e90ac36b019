// The tests' own tools: a tool that does not see a fault proves nothing.
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <gtest/gtest-spi.h>
#include <poll.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/conf.h>
#include <lanyard/radius/dict.h>
#include <lanyard/radius/engine.h>
#include <lanyard/radius/frame.h>
#include <palcore.h>

#include "tests/support/test.h"

namespace lanyard::test::support_test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

// The exchange of RFC 2865 section 7.1.
constexpr const char *kSecret = "xyzzy5461";

Bytes sampleRequest() {
    return "01000038 0f403f9473978057bd83d5cb98f4227a 01066e656d6f"
           "02120dbe708d93d413ce3196e43f782a0aee 0406c0a80110 050600000003"_hex;
}

Bytes sampleReply() {
    return "02000026 86fe220e7624ba2a1005f6bf9b55e0b2 060600000001 0f0600000000 0e06c0a80103"_hex;
}

Attributes sampleReplyAttributes() {
    return Attributes().addInteger(6, 1).addInteger(15, 0).addAddress(14, "192.168.1.3");
}

// A client's socket that is connected to a server; receiving takes at most two seconds.
class Client {
  public:
    Client(const std::string &host, uint16_t port)
        : socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket") {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        EXPECT_EQ(1, inet_pton(AF_INET, host.c_str(), &address.sin_addr));
        EXPECT_EQ(0, connect(socket_.get(), reinterpret_cast<const sockaddr *>(&address),
                             sizeof(address)));
    }
    explicit Client(const ScriptedServer &server) : Client(server.host(), server.port()) {}

    void send(ByteView datagram) const {
        EXPECT_EQ(static_cast<ssize_t>(datagram.size()),
                  ::send(socket_.get(), datagram.data(), datagram.size(), 0));
    }

    [[nodiscard]] Bytes receive() const {
        pollfd watched = {socket_.get(), POLLIN, 0};
        EXPECT_EQ(1, poll(&watched, 1, 2000)) << "no datagram";
        Bytes datagram(4096);
        const ssize_t length = recv(socket_.get(), datagram.data(), datagram.size(), MSG_DONTWAIT);
        EXPECT_LE(0, length) << std::strerror(errno);
        datagram.resize(length > 0 ? static_cast<size_t>(length) : 0);
        return datagram;
    }

    [[nodiscard]] Bytes exchange(ByteView datagram) const {
        send(datagram);
        return receive();
    }

    [[nodiscard]] int get() const { return socket_.get(); }

  private:
    FileDescriptor socket_;
};

TEST(BytesTest, ReadsAndWritesHexadecimal) {
    EXPECT_EQ((Bytes{0x0f, 0x40, 0x3f, 0x94}), "0f40 3F94"_hex);
    EXPECT_EQ("0f403f94", toHex("0f40 3F94"_hex));
    EXPECT_EQ(Bytes{}, ""_hex);
    EXPECT_THROW(fromHex("0f4"), std::invalid_argument);
    EXPECT_THROW(fromHex("0g"), std::invalid_argument);
}

TEST(BytesTest, ShowsWhereBytesDiffer) {
    EXPECT_BYTES_EQ("0102"_hex, "0102"_hex);
    EXPECT_NONFATAL_FAILURE(EXPECT_BYTES_EQ("010203"_hex, "010303"_hex), "01 [03] 03");
    EXPECT_NONFATAL_FAILURE(EXPECT_BYTES_EQ("0102"_hex, "010203"_hex), "from offset 2 on");
}

TEST(RadiusWireTest, AgreesWithKnownDigests) {
    // RFC 1321 appendix A.5 and RFC 2202 section 2.
    EXPECT_EQ("900150983cd24fb0d6963f7d28e17f72", toHex(md5({fromText("a"), fromText("bc")})));
    EXPECT_EQ("750c783e6ab0b503eaa86e310a5db738",
              toHex(hmacMd5("Jefe", {fromText("what do ya want for nothing?")})));
    EXPECT_EQ("6b1ab7fe4bd7bf8f0b62e6ce61b9d0cd",
              toHex(hmacMd5(toText(Bytes(80, 0xaa)),
                            {fromText("Test Using Larger Than Block-Size Key - Hash Key First")})));
}

TEST(RadiusWireTest, MakesTheReplyOfTheStandard) {
    EXPECT_BYTES_EQ(sampleReply(), makeReply(2, sampleRequest(), kSecret, sampleReplyAttributes()));
    EXPECT_TRUE(replyIsValid(sampleReply(), sampleRequest(), kSecret));
    EXPECT_FALSE(replyIsValid(sampleReply(), sampleRequest(), "other"));
}

TEST(RadiusWireTest, HidesAndRevealsThePasswordOfTheStandard) {
    EXPECT_EQ("arctangent", revealPassword(sampleRequest(), kSecret));
    EXPECT_BYTES_EQ(attributeValue(sampleRequest(), 2),
                    hidePassword("arctangent", ByteView(sampleRequest()).subspan(4, 16), kSecret));
    EXPECT_NE("arctangent", revealPassword(sampleRequest(), "other"));
}

TEST(RadiusWireTest, ReadsAttributes) {
    EXPECT_THAT(attributeTypes(sampleRequest()), ElementsAre(1, 2, 4, 5));
    EXPECT_BYTES_EQ(fromText("nemo"), attributeValue(sampleRequest(), 1));
    EXPECT_NONFATAL_FAILURE((void)attributeValue(sampleRequest(), 80), "0 attributes of type 80");
    EXPECT_NONFATAL_FAILURE(
        (void)parseAttributes("01000016 00000000000000000000000000000000 0103"_hex),
        "malformed attribute");
}

TEST(RadiusWireTest, SignsRequestsAndSeesThroughForgedOnes) {
    const Bytes authenticator(16, 7);
    const Bytes request = makeRequest(9, authenticator, kSecret,
                                      Attributes().addMessageAuthenticator().addText(1, "nemo"));
    // By RFC 3579 section 3.2: HMAC-MD5 over the request with the attribute's value zero.
    Bytes zeroed = request;
    std::fill_n(zeroed.begin() + 22, 16, uint8_t{0});
    EXPECT_BYTES_EQ(attributeValue(request, 80), hmacMd5(kSecret, {zeroed}));
    EXPECT_TRUE(messageAuthenticatorIsValid(request, kSecret));
    EXPECT_FALSE(messageAuthenticatorIsValid(request, "other"));
    EXPECT_FALSE(messageAuthenticatorIsValid(sampleRequest(), kSecret));

    Bytes accounting = makePacket(4, 9, Bytes(16), Attributes().addInteger(40, 1));
    EXPECT_FALSE(accountingAuthenticatorIsValid(accounting, kSecret));
    const Digest digest = md5({accounting, fromText(kSecret)});
    std::copy(digest.begin(), digest.end(), accounting.begin() + 4);
    EXPECT_TRUE(accountingAuthenticatorIsValid(accounting, kSecret));
}

TEST(RadiusWireTest, EncryptsMppeKeysAsTheLibraryDecryptsThem) {
    const Bytes authenticator(16, 7);
    const Bytes key = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f"_hex;
    const Bytes data = encryptMppeKey(key, kSecret, authenticator, 0x8123);
    EXPECT_EQ("8123", toHex(ByteView(data).first(2)));
    ASSERT_THAT(data, SizeIs(2 + 48));
    Bytes value(concatenate({"00000137 1034"_hex, data}));
    ASSERT_EQ(0, radVendorMessage(value.data(), static_cast<int>(value.size()), kSecret,
                                  authenticator.data()));
    EXPECT_EQ("20" + toHex(key), toHex(ByteView(value).subspan(6, 33)));
}

TEST(ScriptedServerTest, FollowsItsScriptAndRecordsWhatItGot) {
    ScriptedServer server(kSecret, {accept(sampleReplyAttributes())});
    server.then(reject()).otherwise(challenge());
    const Client client(server);
    EXPECT_BYTES_EQ(sampleReply(), client.exchange(sampleRequest()));
    EXPECT_EQ(1U, server.unusedActions());
    EXPECT_EQ(3, client.exchange(sampleRequest())[0]);
    EXPECT_EQ(11, client.exchange(sampleRequest())[0]);
    ASSERT_TRUE(server.waitForRequests(3));
    EXPECT_FALSE(server.waitForRequests(4, 1ms));
    EXPECT_BYTES_EQ(sampleRequest(), server.request(0));
    EXPECT_EQ("arctangent", revealPassword(server.request(0), kSecret));
    EXPECT_EQ("127.0.0.1", server.request(0).sourceAddress);
    EXPECT_LT(server.request(0).arrival, server.request(2).arrival);
    EXPECT_NONFATAL_FAILURE((void)server.request(3), "only 3 requests have arrived");
}

TEST(ScriptedServerTest, MakesEachFaultTheOnlyOne) {
    const Attributes attributes = Attributes().addText(18, "Hello").addMessageAuthenticator();
    ScriptedServer server(
        kSecret, {accept(attributes), accept(attributes).withWrongIdentifier(),
                  accept(attributes).withWrongAuthenticator(),
                  accept(attributes).withWrongMessageAuthenticator(),
                  accept(attributes).withLengthField(27), accept(attributes).truncatedTo(19),
                  accept(attributes).withTrailing("aabb"_hex), sendRaw("ff"_hex)});
    const Client client(server);
    const Bytes request = sampleRequest();

    const Bytes good = client.exchange(request);
    EXPECT_TRUE(replyIsValid(good, request, kSecret));

    const Bytes wrongIdentifier = client.exchange(request);
    EXPECT_EQ(request[1] + 1, wrongIdentifier[1]);
    EXPECT_TRUE(replyIsValid(wrongIdentifier, request, kSecret));

    EXPECT_FALSE(replyIsValid(client.exchange(request), request, kSecret));

    const Bytes wrongSignature = client.exchange(request);
    EXPECT_TRUE(replyIsValid(wrongSignature, request, kSecret));
    EXPECT_NE(attributeValue(good, 80), attributeValue(wrongSignature, 80));

    const Bytes wrongLength = client.exchange(request);
    EXPECT_EQ(27, wrongLength[3]);
    EXPECT_EQ(good.size(), wrongLength.size());
    EXPECT_TRUE(replyIsValid(wrongLength, request, kSecret));

    EXPECT_BYTES_EQ(ByteView(good).first(19), client.exchange(request));
    EXPECT_BYTES_EQ(concatenate({good, "aabb"_hex}), client.exchange(request));
    EXPECT_BYTES_EQ("ff"_hex, client.exchange(request));
    EXPECT_THROW(silence().withWrongIdentifier(), std::logic_error);
}

// The library reads the reply's signature as the server writes it.
TEST(ScriptedServerTest, SignsRepliesAsTheLibraryChecksThem) {
    const ConfiguredLibrary library;
    const Bytes request = sampleRequest();
    Bytes reply = makeReply(2, request, kSecret, Attributes().addMessageAuthenticator());
    EXPECT_EQ(0,
              radCheckMsgAuth(reinterpret_cast<RadPacket *>(reply.data()), kSecret, &request[4]));
    reply = makeReply(2, request, kSecret, Attributes().addMessageAuthenticator(),
                      {.wrongMessageAuthenticator = true});
    EXPECT_EQ(-1,
              radCheckMsgAuth(reinterpret_cast<RadPacket *>(reply.data()), kSecret, &request[4]));
}

TEST(ScriptedServerTest, AnswersLateTwiceFromElsewhereOrByFunction) {
    ScriptedServer server(
        kSecret,
        {reject().delayed(200ms), accept(), accept().twice(),
         accept([](const ReceivedRequest &request) {
             return Attributes().add(24, request.authenticator());
         }),
         respond([](const ReceivedRequest &request) { return Bytes{request.identifier()}; }),
         silence()});
    const Client client(server);
    client.send(sampleRequest());
    client.send(sampleRequest());
    EXPECT_EQ(2, client.receive()[0]) << "a delayed answer holds up those after it";
    EXPECT_EQ(3, client.receive()[0]);
    EXPECT_LE(200ms, std::chrono::steady_clock::now() - server.request(0).arrival);

    const Bytes once = client.exchange(sampleRequest());
    EXPECT_BYTES_EQ(once, client.receive());

    EXPECT_BYTES_EQ(ByteView(sampleRequest()).subspan(4, 16),
                    attributeValue(client.exchange(sampleRequest()), 24));
    EXPECT_BYTES_EQ("00"_hex, client.exchange(sampleRequest()));
    client.send(sampleRequest());
    ASSERT_TRUE(server.waitForRequests(6));

    // A connected client does not take the answer from elsewhere, and takes the next.
    server.then(accept().fromOtherPort()).then(reject());
    client.send(sampleRequest());
    EXPECT_EQ(3, client.exchange(sampleRequest())[0]);
}

TEST(ScriptedServerTest, SaysWhatItCannotAnswer) {
    EXPECT_NONFATAL_FAILURE_ON_ALL_THREADS(
        {
            ScriptedServer server(kSecret, {accept(), sendRaw("01"_hex)});
            const Client client(server);
            client.send("0100"_hex);
            (void)client.exchange("0100"_hex);
        },
        "the scripted server cannot answer");
}

TEST(PortTest, SilentOneTakesAndRefusedOneRefuses) {
    const SilentPort silent("127.0.0.2");
    const Client toSilent(silent.host(), silent.port());
    toSilent.send("aa"_hex);
    EXPECT_THAT(silent.received(), ElementsAre("aa"_hex));
    EXPECT_THAT(silent.received(), IsEmpty());

    const RefusedPort refused;
    const Client toRefused(refused.host(), refused.port());
    toRefused.send("aa"_hex);
    pollfd watched = {toRefused.get(), POLLIN, 0};
    ASSERT_EQ(1, poll(&watched, 1, 2000));
    char byte = 0;
    EXPECT_EQ(-1, recv(toRefused.get(), &byte, 1, MSG_DONTWAIT));
    EXPECT_EQ(ECONNREFUSED, errno);
}

TEST(FailingCallTest, StrikesTheNthCallOfTheThreadOnce) {
    EXPECT_FALSE(strikes("bind"));
    {
        const FailingCall failure("bind", EADDRINUSE, 2);
        std::thread([] { EXPECT_FALSE(strikes("bind")); }).join();
        EXPECT_FALSE(strikes("socket"));
        EXPECT_FALSE(strikes("bind"));
        EXPECT_FALSE(failure.happened());
        errno = 0;
        EXPECT_TRUE(strikes("bind"));
        EXPECT_EQ(EADDRINUSE, errno);
        EXPECT_TRUE(failure.happened());
        EXPECT_FALSE(strikes("bind"));
    }
    const FailingCall next("socket", EMFILE);
    EXPECT_FALSE(strikes("bind"));
    EXPECT_TRUE(strikes("socket"));
}

TEST(LogRecorderTest, RecordsWhatTheLibraryLogs) {
    const LogRecorder log;
    errno = EDOM;
    EXPECT_EQ(-1, radDictAddAttr("bogus"));
    EXPECT_LOGGED(log, 8, "radDictAddAttr", "radDictAddAttr: Invalid Attribute in: bogus\n");
    EXPECT_ONLY_PROBLEM(log, 8, "radDictAddAttr", StartsWith("radDictAddAttr: Invalid"));
    EXPECT_NOTHING_LOGGED(log, 16);
    EXPECT_EQ(EDOM, errno);
    ASSERT_TRUE(log.firstProblem());
    EXPECT_LT(0, log.firstProblem()->line);
}

TEST(LogRecorderTest, TellsLinesApart) {
    LogRecorder log;
    palModuleDebug(8, 16, "first", 3, "%d and %s\n", 7, "more");
    palModuleDebug(7, 128, "second", 4, "%s", std::string(5000, 'x').c_str());
    palModuleDebugHex(7, 256, "Packet", "\x01\x02", 2);
    palModuleDebugHex(7, 4, "None", nullptr, 0);
    EXPECT_THAT(log.lines(), ElementsAre(Logged(8, 16, "first", "7 and more\n"),
                                         Logged(7, 128, "second", SizeIs(5000))));
    EXPECT_THAT(log.texts(16), ElementsAre("7 and more\n"));
    EXPECT_THAT(log.problems(), SizeIs(1));
    EXPECT_THAT(log.dumps(),
                ElementsAre(Dumped(7, 256, "Packet", "0102"_hex), Dumped(7, 4, "None", {})));
    EXPECT_FALSE(log.nothingLogged(4));
    EXPECT_NONFATAL_FAILURE(EXPECT_LOGGED(log, 16, "first", "7 and more\n"), "module 8, level 16");
    EXPECT_NONFATAL_FAILURE(EXPECT_PROBLEMS(log), "device warning first> 7 and more");
    EXPECT_THROW(LogRecorder(), std::logic_error);
    log.clear();
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_TRUE(log.nothingLogged(256));
}

TEST(LogRecorderTest, ShowsLinesAsText) {
    const LogRecorder log;
    EXPECT_LOG(log);
    palModuleDebug(7, 8, "radAuth", 3, "radAuth: %s\n", "no");
    palModuleDebug(7, 128, "radAuth", 4, "Sending %d\n", 2);
    palModuleDebug(8, 4, "radAuth", 5, "radAuthentic: no\n");
    palModuleDebug(9, 64, "main", 6, "two\nlines");
    EXPECT_LOG(log, "error radAuth: no", "trace radAuth> Sending 2",
               "device critical radAuth> radAuthentic: no", "module 9 64 main> two\nlines\\");
    EXPECT_PROBLEMS(log, "error radAuth: no", "device critical radAuth> radAuthentic: no");
    palModuleDebug(7, 16, "f", 7, "\n");
    palModuleDebug(7, 256, "f", 8, "%s", "");
    EXPECT_THAT(log.log(), SizeIs(6));
    EXPECT_EQ("warning f> ", log.log()[4]);
    EXPECT_EQ("packet f> \\", log.log()[5]);
}

TEST(LogRecorderTest, ShowsWhereTheLogDiffers) {
    const LogRecorder log;
    EXPECT_NONFATAL_FAILURE(EXPECT_LOG(log, "error f: no"), "- error f: no\n  + (nothing)");
    palModuleDebug(7, 8, "f", 1, "f: no\n");
    palModuleDebug(7, 128, "g", 2, "f: no\n");
    EXPECT_NONFATAL_FAILURE(EXPECT_LOG(log), "- (nothing)\n  + error f: no\n");
    EXPECT_NONFATAL_FAILURE(EXPECT_LOG(log, "error f: no", "trace f: no"),
                            "    error f: no\n  - trace f: no\n  + trace g> f: no");
    EXPECT_NONFATAL_FAILURE(EXPECT_PROBLEMS(log, "critical f: no"), "+ error f: no");
    EXPECT_NONFATAL_FAILURE(EXPECT_PROBLEMS(log, "error f: no\\"), "+ error f: no");
    EXPECT_NONFATAL_FAILURE(EXPECT_PROBLEMS(log), "+ error f: no");
}

TEST(LogRecorderTest, TakesLinesOfManyThreads) {
    const LogRecorder log;
    std::array<std::thread, 4> threads;
    for (std::thread &thread : threads) {
        thread = std::thread([] {
            for (int i = 0; i < 100; ++i) {
                palModuleDebug(7, 8, "thread", i, "line %d\n", i);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_THAT(log.lines(8), SizeIs(400));
}

TEST(FailingPartitionTest, StandsInForThatOfTheLibrary) {
    forgetPartitions();
    ASSERT_EQ(0, radMemInit(1000));
    ASSERT_THAT(partitions(), SizeIs(1));
    EXPECT_EQ("radiusPartition", partitions()[0].name);
    EXPECT_EQ(1000U, partitions()[0].size);
    ASSERT_EQ(0, radDictAddAttr("User-Name 1 string"));
    EXPECT_EQ(1U, liveBlocks(radMemPartId));
    failAllocation(2);
    EXPECT_EQ(-1, radDictAddAttr("Other 2 string"));
    EXPECT_TRUE(allocationFailed());
    ASSERT_EQ(0, radDictAddAttr("Other 2 string"));
    EXPECT_EQ(2U, liveBlocks(radMemPartId));
    EXPECT_EQ(0, radDictUnload());
    EXPECT_EQ(0U, liveBlocks(radMemPartId));

    const PalMemPartId part = radMemPartId;
    EXPECT_NE(nullptr, palMemPartAlloc(part, 10));
    EXPECT_EQ(0, radMemCleanUp());
    EXPECT_TRUE(partitions()[0].destroyed);
    EXPECT_EQ(1U, partitions()[0].blocksAtDestroy);
    EXPECT_EQ(0U, liveBlocks());
    EXPECT_EQ(-1, palMemPartDestroy(part));
    EXPECT_EQ(nullptr, palMemPartAlloc(part, 1));
}

TEST(FailingPartitionTest, HoldsNoMoreThanItsSize) {
    const PalMemPartId part = palMemPartCreate("small", nullptr, 100);
    void *block = palMemPartAlloc(part, 60);
    ASSERT_NE(nullptr, block);
    EXPECT_EQ(nullptr, palMemPartAlloc(part, 41));
    EXPECT_EQ(nullptr, palMemPartAlloc(0, 0x80000000U));
    char *text = palMemPartStrDup(part, "copy");
    EXPECT_STREQ("copy", text);
    EXPECT_EQ(2U, liveBlocks(part));
    EXPECT_EQ(0, palMemPartFree(0, text));
    EXPECT_EQ(0, palMemPartFree(part, block));
    EXPECT_EQ(0, palMemPartFree(part, nullptr));
    EXPECT_NONFATAL_FAILURE(EXPECT_EQ(-1, palMemPartFree(part, block)), "no live block");
    EXPECT_EQ(0, palMemPartDestroy(part));
    failCreation();
    EXPECT_EQ(0U, palMemPartCreate("failing", nullptr, 100));
}

TEST(FailingPartitionTest, FailsOnOrder) {
    const auto succeeds = [] {
        void *block = palMemPartAlloc(0, 1);
        palMemPartFree(0, block);
        return block != nullptr;
    };
    failAllocation(2);
    EXPECT_TRUE(succeeds());
    EXPECT_FALSE(succeeds());
    EXPECT_TRUE(succeeds());
    failAllocationsFrom(2);
    EXPECT_FALSE(allocationFailed());
    EXPECT_TRUE(succeeds());
    EXPECT_FALSE(succeeds());
    EXPECT_FALSE(succeeds());
    stopFailing();
    EXPECT_TRUE(succeeds());
    EXPECT_TRUE(allocationFailed());
}

TEST(FailingPartitionTest, TriesEachAllocation) {
    int runs = 0;
    EXPECT_EQ(2U, forEachFailingAllocation([&] {
                  ++runs;
                  palMemPartFree(0, palMemPartAlloc(0, 1));
                  palMemPartFree(0, palMemPartAlloc(0, 1));
              }));
    EXPECT_EQ(3, runs);
    EXPECT_NONFATAL_FAILURE(
        forEachFailingAllocation([] { palMemPartFree(0, palMemPartAlloc(0, 1)); }, 1),
        "still failing after 1 runs");
    void *leaked = nullptr;
    EXPECT_NONFATAL_FAILURE(forEachFailingAllocation([&] { leaked = palMemPartAlloc(0, 1); }),
                            "left other blocks");
    palMemPartFree(0, leaked);
}

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

TEST(StdoutCaptureTest, TakesWhatIsPrinted) {
    StdoutCapture output;
    radLibVersion();
    EXPECT_EQ("Lanyard RADIUS 2.0.0\n", output.text());
    EXPECT_LE(0, std::puts("more"));
    EXPECT_EQ(0, std::fflush(stdout));
    EXPECT_EQ(3, write(STDOUT_FILENO, "raw", 3));
    EXPECT_EQ("Lanyard RADIUS 2.0.0\nmore\nraw", output.finish());
    EXPECT_EQ("Lanyard RADIUS 2.0.0\nmore\nraw", output.text());
}

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
}  // namespace lanyard::test::support_test
