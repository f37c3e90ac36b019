#include "tests/unit/failures/public_functions.h"

#include <array>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/conf.h>
#include <lanyard/radius/dict.h>
#include <lanyard/radius/engine.h>
#include <lanyard/radius/methods.h>
#include <lanyard/radius/mgmt.h>

namespace lanyard::test {
namespace {

constexpr unsigned kRelay = kStarted | kBus | kConversation;
constexpr unsigned kIdle = kStarted | kLoop;

const uint8_t *bytesOf(const char *text) {
    return reinterpret_cast<const uint8_t *>(text);
}

constexpr const char *kAuthenticator = "0123456789abcdef";
constexpr const char *kChallenge = kAuthenticator;

// The arguments of a sample program; it reads the device's configuration file.
template <typename... More>
int64_t runSample(int (*sample)(int, char **, More *...), std::vector<std::string> words,
                  More... places) {
    const Arguments arguments(std::move(words));
    return sample(const_cast<Arguments &>(arguments).count(),
                  const_cast<Arguments &>(arguments).vector(), &places...);
}

const std::vector<std::string> kLogin = {"sample", kUser, kUsersPassword};

// 1 for a pair, which the world then owns; 0 for none.
int64_t keep(World &world, RadPair *pair) {
    world.made = pair;
    return pair != nullptr ? 1 : 0;
}

int64_t isThere(const void *pointer) {
    return pointer != nullptr ? 1 : 0;
}

// One that a radXxxStart() gave back, or nothing; then the loop is run to its end.
int64_t finish(World &world, const RadRequest *started) {
    return started == nullptr ? 0 : world.finishLoop();
}

// Packets are made once, by the first call, which does not fail: digests of the tests' own need memory.
const Bytes &requestPacket() {
    static const Bytes packet =
        makeRequest(7, Bytes(16, 1), kSecret, Attributes().addText(RAD_ATTR_USER_NAME, kUser));
    return packet;
}

const Bytes &replyPacket() {
    static const Bytes packet =
        makeReply(2, requestPacket(), kSecret,
                  Attributes().addText(18, "hello").addInteger(27, 60).addMessageAuthenticator());
    return packet;
}

// A Vendor-Specific value with a key that is hidden with kAuthenticator.
const Bytes &keyValue() {
    static const Bytes value = attributeValue(
        makePacket(2, 7, Bytes(16),
                   Attributes().addVendor(
                       311, 17, encryptMppeKey("a1a2a3a4"_hex, kSecret, fromText(kAuthenticator)))),
        26);
    return value;
}

// A reply in a socket, read as radSendtoServer() does.
int64_t receive(World &world) {
    const int socket = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    const Bytes &reply = replyPacket();
    if (socket == -1 || bind(socket, reinterpret_cast<sockaddr *>(&address), size) != 0 ||
        getsockname(socket, reinterpret_cast<sockaddr *>(&address), &size) != 0 ||
        sendto(socket, reply.data(), reply.size(), 0, reinterpret_cast<sockaddr *>(&address),
               size) < 0) {
        close(socket);
        return -1;
    }
    sockaddr_in source{};
    const RadRecvCtx context{
        .socket = socket, .host = "127.0.0.1", .source = &source, .secret = kSecret};
    Bytes sent = requestPacket();
    const int code =
        radRecvfromServer(&context, reinterpret_cast<RadPacket *>(sent.data()), &world.made);
    close(socket);
    return code;
}

int64_t packList(World &world) {
    uint32_t size = 0;
    if (radPackList(world.pairs, RAD_PACK_MEASURE, &size) != 0) {
        return -2;
    }
    Bytes packet = makePacket(1, 7, Bytes(16, 1));
    packet.resize(RAD_HEADER_SIZE + size);
    packet[3] = static_cast<uint8_t>(packet.size());
    return radPackList(world.pairs, RAD_PACK, packet.data(), kSecret);
}

int64_t encode(World &world) {
    Bytes packet(RAD_PACKET_MAX);
    uint8_t length = 0;
    return radPairEncode(packet.data() + RAD_HEADER_SIZE + 2, &length,
                         radPairGet(world.pairs, RAD_ATTR_USER_PASSWORD), kSecret,
                         reinterpret_cast<RadPacket *>(packet.data()));
}

int64_t hide(World & /*world*/) {
    std::array<uint8_t, 16> out{};
    return radMd5Crypt(kSecret, bytesOf(kChallenge), nullptr, 0, bytesOf(kChallenge), 16,
                       out.data(), 0);
}

int64_t checkSignature(World & /*world*/) {
    Bytes reply = replyPacket();
    return radCheckMsgAuth(reinterpret_cast<RadPacket *>(reply.data()), kSecret,
                           requestPacket().data() + 4);
}

int64_t unpack(World &world) {
    const Bytes &value = keyValue();
    if (keep(world, radPairNew(RAD_ATTR_VENDOR_SPECIFIC, value.data(),
                               static_cast<int>(value.size()))) == 0) {
        return -1;
    }
    Bytes packet = makePacket(1, 7, fromText(kAuthenticator));
    auto *header = reinterpret_cast<RadPacket *>(packet.data());
    return radPairUnpackDefault(world.made, world.made, header, header, kSecret);
}

int64_t decryptKey(World & /*world*/) {
    Bytes value = keyValue();
    return radVendorMessage(value.data(), static_cast<int>(value.size()), kSecret,
                            bytesOf(kAuthenticator));
}

int64_t copyVendorData(World &world) {
    const Bytes &value = keyValue();
    if (keep(world, radPairNew(RAD_ATTR_VENDOR_SPECIFIC, value.data(),
                               static_cast<int>(value.size()))) == 0) {
        return -1;
    }
    uint8_t *data = nullptr;
    const int status = radVendorAttrGet(world.made, RAD_VENDOR_MICROSOFT, 17, &data);
    world.block = data;
    return status;
}

int64_t buildKeyInfo(World &world) {
    if (keep(world, radPairNew(RAD_ATTR_SESSION_TIMEOUT, "\x3c\0\0", 4)) == 0) {
        return -1;
    }
    uint8_t *block = nullptr;
    uint32_t size = 0;
    const int status = radEapKeyInfoBuild(world.made, &block, &size, RAD_CODE_ACCESS_ACCEPT);
    world.block = block;
    return status;
}

int64_t decodeReply(World &world) {
    const Bytes &packet = replyPacket();
    return radPairGen(reinterpret_cast<const RadPacket *>(packet.data()), &world.made);
}

int64_t askAll(World &world) {
    std::array<int32_t, RAD_SERVERS_MAX> results{};
    return radBuildAndSendReqCheckAllServer(RAD_CODE_ACCESS_REQUEST, world.pairs, &world.made,
                                            results.data());
}

int64_t authAll(World & /*world*/) {
    std::array<int32_t, RAD_SERVERS_MAX> results{};
    return radAuthCheckAllServer(kUser, kUsersPassword, results.data());
}

std::array<uint8_t, RAD_CHAP_RESPONSE_SIZE> chapResponse() {
    std::array<uint8_t, RAD_CHAP_RESPONSE_SIZE> response{};
    response[0] = 9;
    return response;
}

int64_t deliverNotice(const World & /*world*/, int opCode, std::string oldValues) {
    RadDbUpdateInfo info{};
    std::strcpy(static_cast<char *>(info.tableName), "radiusClient");
    info.rowId = 1;
    info.opCode = opCode;
    return radiusMgmtDBUpdateHandler(&info, sizeof(info),
                                     oldValues.empty() ? nullptr : oldValues.data(),
                                     static_cast<uint32_t>(oldValues.size()));
}

std::string oldRow() {
    std::string texts;
    for (const char *text : {"authserver", "authport", "authsecret", "authtimeout", "authretries",
                             "127.0.0.9", "1812", "s2", "5", "3"}) {
        texts.append(text).push_back('\0');
    }
    return texts;
}

int64_t handleRow(World & /*world*/) {
    std::array<std::string, 10> texts = {"authserver",  "authport",  "authsecret", "authtimeout",
                                         "authretries", "127.0.0.3", "1812",       "s3",
                                         "5",           "3"};
    std::array<char *, 10> row{};
    for (size_t i = 0; i < texts.size(); ++i) {
        row[i] = texts[i].data();
    }
    return radiusAuthServerHandler(nullptr, RAD_DB_INSERT, 0, 7, row.data(), 5, 1, nullptr);
}

Bytes eapRecord() {
    return "01100000 17000000 09000000 02070009 01 6e656d6f"_hex;
}

int64_t handleRecord(World & /*world*/) {
    Bytes record = eapRecord();
    return radEapIoctlHandler(nullptr, nullptr, 17, record.data(),
                              static_cast<uint32_t>(record.size()), nullptr, nullptr);
}

int64_t queuePacket(World & /*world*/) {
    const Bytes packet = "02070009 01 6e656d6f"_hex;
    return radEapRecv(packet.data(), static_cast<int32_t>(packet.size()), kCookie, 6, 23);
}

int64_t sendToPnac(World & /*world*/) {
    const Bytes packet = "03070004"_hex;
    return radEapSendRtn(packet.data(), static_cast<int32_t>(packet.size()), kCookie);
}

int64_t sendResult(World & /*world*/) {
    return radEapSendResult(bytesOf("\x02\x07\x00\x04"), kCookie, 3, nullptr, 0);
}

// Its last pass sends a failure.
int64_t ageOut(World & /*world*/) {
    reinterpret_cast<RadEapQueueEntry *>(radEapMsgQueue.first)->age = RAD_EAP_LIFE + 1;
    return radEapCtxTimeout();
}

int64_t startChap(World &world) {
    return finish(world,
                  radChapAuthStart(world.loop, kUser, chapResponse().data(), RAD_CHAP_RESPONSE_SIZE,
                                   bytesOf(kChallenge), 16, World::loginDone, &world));
}

template <auto start>
int64_t startLogin(World &world) {
    return finish(world, start(world.loop, kUser, kUsersPassword, World::loginDone, &world));
}

int64_t startRequest(World &world) {
    return finish(world, radRequestStart(world.loop, RAD_CODE_ACCESS_REQUEST, world.pairs,
                                         World::done, &world));
}

int64_t destroyLoop(World &world) {
    radLoopDestroy(world.loop);
    world.loop = nullptr;
    return 0;
}

int64_t cancelRequest(World &world) {
    radRequestCancel(world.started);
    return 0;
}

template <auto login>
int64_t logInWithLimits(World & /*world*/) {
    uint32_t idle = 0;
    uint32_t session = 0;
    return login(kUser, kUsersPassword, &idle, &session);
}

int64_t chapWithLimits(World & /*world*/) {
    int idle = 0;
    int session = 0;
    return radChapAuthAndGetAttributes(kUser, chapResponse().data(), RAD_CHAP_RESPONSE_SIZE,
                                       bytesOf(kChallenge), 16, &idle, &session);
}

int64_t makeMschapv2Response(World & /*world*/) {
    std::array<uint8_t, 24> response{};
    std::array<uint8_t, 16> challenge{};
    return generateMschapv2Response(response.data(), challenge.data(), kUser, kUsersPassword,
                                    bytesOf(kChallenge));
}

int64_t makeNtResponse(World & /*world*/) {
    std::array<uint8_t, 24> response{};
    return radMschapNtResponse(kUsersPassword, response.data(), bytesOf("12345678"), kUser);
}

int64_t makeChapResponse(World & /*world*/) {
    std::array<uint8_t, RAD_CHAP_RESPONSE_SIZE> response{};
    return radChapRespMake(response.data(), bytesOf(kUsersPassword), 10, bytesOf(kChallenge));
}

// Without a database, which radiusMgmtInit() opens for it.
int64_t runRelay(World & /*world*/) {
    const Arguments arguments({"radeap", "-v"});
    return radEapMain(const_cast<Arguments &>(arguments).count(),
                      const_cast<Arguments &>(arguments).vector());
}

}  // namespace

void PrintTo(const PublicFunction &function, std::ostream *stream) {
    *stream << function.name;
}

// clang-format off
const std::vector<PublicFunction> &publicFunctions() {
    using W = World;
    const uint32_t kLoopback = htonl(INADDR_LOOPBACK);
    static const std::vector<PublicFunction> table{
        // attr.h
        {"radPairNew", kStarted, [](W &w) { return keep(w, radPairNew(1, kUser, 0)); }, 1, {0}},
        {"radPairAdd", kStarted, [](W &w) { return isThere(radPairAdd(&w.pairs, 18, "x", 0)); }, 1, {0}},
        {"radPairDup", kStarted, [](W &w) { return keep(w, radPairDup(w.pairs)); }, 1, {0}},
        {"radPairGen", kStarted, decodeReply},
        {"radPairShow", kStarted, [](W &w) -> int64_t { return radPairShow(w.pairs); }},
        {"radPairUnpackDefault", kStarted, unpack},
        {"radVendorMessage", kStarted, decryptKey},
        {"radVendorAttrGet", kStarted, copyVendorData},
        // conf.h
        {"radConfSetTimeout", kStarted, [](W &) -> int64_t { return radConfSetTimeout("7"); }, 0, {-1}, Leaves::kSome},
        {"radConfSetRetries", kStarted, [](W &) -> int64_t { return radConfSetRetries("7"); }, 0, {-1}, Leaves::kSome},
        {"radConfSetDict", kStarted, [](W &) -> int64_t { return radConfSetDict(kDictFile); }, 0, {-1}, Leaves::kSome},
        {"radConfSetAuthServ", kDatabase | kStarted, [](W &) -> int64_t {
             radConfDelAuthServ();
             return radConfSetAuthServ("127.0.0.2:1812:1:0:s2,127.0.0.3:s3");
         }, 0, {-1}, Leaves::kSome},
        {"radConfSetAcctServ", kStarted, [](W &) -> int64_t {
             radConfDelAcctServ();
             return radConfSetAcctServ("127.0.0.2:s2");
         }, 0, {-1}, Leaves::kSome},
        {"radConfSetServers", kStarted, [](W &) -> int64_t { return radConfSetServers("127.0.0.2:s2,127.0.0.3:s3", RAD_SERVER_AUTH); },
         0, {-1}, Leaves::kSome},
        {"radConfAddAuthServ", kStarted, [](W &) -> int64_t { return radConfAddAuthServ("127.0.0.2", 1, 2, 3, "s2", "nas"); }, 0, {-1}, Leaves::kSome},
        {"radConfAddAcctServ", kStarted, [](W &) -> int64_t { return radConfAddAcctServ("127.0.0.2", 1, 2, 3, "s2"); }, 0, {-1}, Leaves::kSome},
        {"radConfigure", kStarted, [](W &) -> int64_t { return radConfigure(kConfFile); }, 0, {-1}, Leaves::kSome},
        {"radConfAssert", kStarted, [](W &) -> int64_t { return radConfAssert(); }},
        // dict.h
        {"radDictAddAttr", kStarted, [](W &) -> int64_t { return radDictAddAttr("Test-Text 250 string"); }},
        {"radDictAddValue", kStarted, [](W &) -> int64_t { return radDictAddValue("User-Name Test 77"); }},
        {"radDictLoad", kStarted, [](W &) -> int64_t { return radDictLoad(kDictFile); }, 0, {-1}, Leaves::kSome},
        // engine.h
        {"radPairEncode", kStarted, encode},
        {"radPackList", kStarted, packList},
        {"radSendtoServer", kStarted, [](W &w) -> int64_t {
             const RadRequestDesc request = w.request();
             return radSendtoServer(&request, w.pairs, &w.made);
         }, 2},
        {"radRecvfromServer", kStarted, receive, 2},
        {"radMd5Crypt", kStarted, hide},
        {"radCheckMsgAuth", kStarted, checkSignature},
        {"radBuildAndSendReq", kStarted, [](W &w) -> int64_t { return radBuildAndSendReq(RAD_CODE_ACCESS_REQUEST, w.pairs, &w.made); }, 2},
        {"radBuildAndSendReqCheckAllServer", kStarted, askAll, 2},
        {"radGetIPByName", kStarted, [](W &) -> int64_t { return radGetIPByName("127.0.0.1"); }, kLoopback, {0, 0xffffffff}},
        {"radGetHostIP", kStarted, [](W &) -> int64_t { return radGetHostIP(); }, kLoopback, {0, 0xffffffff}},
        // frame.h
        {"radMemInit", kStopped, [](W &) -> int64_t { return radMemInit(RAD_PARTITION_SIZE); }},
        {"radCryptoInit", kStopped, [](W &) -> int64_t { return radCryptoInit(); }},
        {"radLibVersion", kStopped, [](W &) -> int64_t { return radLibVersion(); }},
        {"radLibInit", kStopped, [](W &) -> int64_t { return radLibInit(kConfFile); }, 0, {-1}, Leaves::kSome},
        // loop.h
        {"radLoopCreate", kStarted, [](W &w) { w.loop = radLoopCreate(); return isThere(w.loop); }, 1, {0}},
        {"radLoopRun", kIdle | kRequest, [](W &w) { return w.finishLoop(); }, 2, {-1}},
        {"radLoopDestroy", kIdle | kRequest, destroyLoop},
        {"radRequestStart", kIdle, startRequest, 2, {0, -1}},
        {"radRequestCancel", kIdle | kRequest, cancelRequest},
        {"radAuthStart", kIdle, startLogin<radAuthStart>, 2, {0, -1}},
        {"radChapAuthStart", kIdle, startChap, 2, {0, -1}},
        {"radMschapStart", kIdle, startLogin<radMschapStart>, 2, {0, -1}},
        {"radMschapv2Start", kIdle, startLogin<radMschapv2Start>, 2, {0, -1}},
        // methods.h
        {"radAuth", kStarted, [](W &) -> int64_t { return radAuth(kUser, kUsersPassword); }},
        {"radAuthCheckAllServer", kStarted, authAll},
        {"radAuthAndGetAttributes", kStarted, logInWithLimits<radAuthAndGetAttributes>},
        {"radAcct", kStarted, [](W &) -> int64_t { return radAcct(1); }},
        {"radChapRespMake", kStarted, makeChapResponse, 17, {0}},
        {"radChapAuth", kStarted, [](W &) -> int64_t {
             return radChapAuth(kUser, chapResponse().data(), RAD_CHAP_RESPONSE_SIZE, bytesOf(kChallenge), 16);
         }},
        {"radChapAuthAndGetAttributes", kStarted, chapWithLimits},
        {"radMschapNtResponse", kStarted, makeNtResponse, 0, {-1}, Leaves::kSome},
        {"radMschap", kStarted, [](W &) -> int64_t { return radMschap(kUser, kUsersPassword); }, 0, {-1}, Leaves::kSome},
        {"radMschapAndGetAttributes", kStarted, logInWithLimits<radMschapAndGetAttributes>, 0, {-1}, Leaves::kSome},
        {"generateMschapv2Response", kStarted, makeMschapv2Response, 0, {-1}, Leaves::kSome},
        {"radMschapv2", kStarted, [](W &) -> int64_t { return radMschapv2(kUser, kUsersPassword); }, 0, {-1}, Leaves::kSome},
        {"radMschapv2AndGetAttributes", kStarted, logInWithLimits<radMschapv2AndGetAttributes>, 0, {-1}, Leaves::kSome},
        // mgmt.h
        {"radiusMgmtInit", kStarted | kDatabase, [](W &w) -> int64_t { return radiusMgmtInit(w.databasePath(), "test"); },
         0, {-1}, Leaves::kSome},
        {"radiusMgmtInit", kStarted | kInterrupted, [](W &w) -> int64_t { return radiusMgmtInit(w.databasePath(), "test"); },
         0, {-1}, Leaves::kSome},
        {"radiusMgmtDBUpdateHandler", kStarted | kDatabase, [](W &w) { return deliverNotice(w, RAD_DB_INSERT, {}); }, 0, {-1}, Leaves::kSome},
        {"radiusMgmtDBUpdateHandler", kStarted | kDatabase, [](W &w) { return deliverNotice(w, RAD_DB_UPDATE, oldRow()); },
         0, {-1}, Leaves::kSome},
        {"radiusMgmtDBUpdateHandler", kStarted | kDatabase, [](W &w) { return deliverNotice(w, RAD_DB_DELETE, oldRow()); },
         0, {-1}, Leaves::kSome},
        {"radiusAuthServerHandler", kStarted, handleRow, 0, {-1}, Leaves::kSome},
        {"radiusClientTblHandler", kStarted | kDatabase, [](W &w) -> int64_t { return radiusClientTblHandler(w.databasePath(), RAD_DB_INSERT); }},
        {"radGetHostIPFromDB", kStarted | kDatabase, [](W &) -> int64_t { return radGetHostIPFromDB(); }, kLoopback, {0}},
        // relay.h
        {"radEapRecv", kStarted, queuePacket},
        {"radEapRecv", kRelay, queuePacket, 0, {-1}, Leaves::kSome},
        {"radEapRecvTask", kRelay, [](W &) -> int64_t { return radEapRecvTask(); }, 0, {}, Leaves::kSome},
        {"radEapCtxTimeout", kRelay, ageOut, 0, {}},
        {"radEapKeyInfoBuild", kStarted, buildKeyInfo},
        {"radEapSendResult", kRelay, sendResult},
        {"radEapSendRtn", kRelay, sendToPnac},
        {"radEapMain", kStarted, runRelay, 0, {-1}, Leaves::kSome},
        {"radEapInit", kStarted, [](W &) -> int64_t { return radEapInit(); }},
        {"radEapXbusInit", kStarted, [](W &) -> int64_t { return radEapXbusInit(); }},
        {"radEapIoctlHandler", kRelay, handleRecord, 0, {-1}, Leaves::kSome},
        {"radEapExit", kStarted, [](W &) -> int64_t { radEapExit(15); return 0; }},
        // sample.h
        {"radAuthSampleMain", kStopped, [](W &) { return runSample(radAuthSampleMain, kLogin); }, 0, {-1}, Leaves::kSome},
        {"radAuthSampleMainCheckAllServer", kStopped, [](W &) -> int64_t {
             std::array<int32_t, RAD_SERVERS_MAX> results{};
             Arguments arguments(kLogin);
             return radAuthSampleMainCheckAllServer(arguments.count(), arguments.vector(), results.data());
         }, 0, {-1}, Leaves::kSome},
        {"radAuthSampleMainCaptivePortal", kStopped, [](W &) { return runSample(radAuthSampleMainCaptivePortal, kLogin, 0U, 0U); },
         0, {-1}, Leaves::kSome},
        {"radChapSampleMain", kStopped, [](W &) { return runSample(radChapSampleMain, kLogin); }, 0, {-1}, Leaves::kSome},
        {"radChapSampleMainCaptivePortal", kStopped, [](W &) { return runSample(radChapSampleMainCaptivePortal, kLogin, 0, 0); },
         0, {-1}, Leaves::kSome},
        {"radMschapSampleMain", kStopped, [](W &) { return runSample(radMschapSampleMain, kLogin); }, 0, {-1}, Leaves::kSome},
        {"radMschapSampleMainCaptivePortal", kStopped, [](W &) { return runSample(radMschapSampleMainCaptivePortal, kLogin, 0U, 0U); },
         0, {-1}, Leaves::kSome},
        {"radMschapv2SampleMain", kStopped, [](W &) { return runSample(radMschapv2SampleMain, kLogin); }, 0, {-1}, Leaves::kSome},
        {"radMschapv2SampleMainCaptivePortal", kStopped, [](W &) { return runSample(radMschapv2SampleMainCaptivePortal, kLogin, 0U, 0U); },
         0, {-1}, Leaves::kSome},
        {"radAcctSampleMain", kStopped, [](W &) { return runSample(radAcctSampleMain, {"sample", "-s", "1"}); }, 0, {-1}, Leaves::kSome},
    };
    return table;
}
// clang-format on

}  // namespace lanyard::test
