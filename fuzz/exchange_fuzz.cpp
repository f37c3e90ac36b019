// One request or login with a scripted server at its far end. First the kind of call, the options and which
// allocation fails; then, for each datagram that is sent, what comes of it.
#include <algorithm>
#include <array>
#include <cerrno>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/conf.h>
#include <lanyard/radius/dict.h>
#include <lanyard/radius/engine.h>
#include <lanyard/radius/error.h>
#include <lanyard/radius/methods.h>

#include "fuzz/network.h"
#include "fuzz/server.h"

namespace {

using namespace lanyard::fuzz;

enum : uint8_t { kResilient = 1, kRequiresSignature = 2, kTwoServers = 4, kEap = 8, kStatus = 16 };

constexpr const char *kName = "alice";
constexpr const char *kPassword = "wonderland";
constexpr int kUntouched = -4711;

std::vector<Bytes> genuine;  // replies that somebody who knows the secret has made

bool isGenuine(int code) {
    return std::any_of(genuine.begin(), genuine.end(),
                       [code](const Bytes &reply) { return reply[0] == code; });
}

int onSend(Script &script, int socket, ByteView request) {
    require(isSound(request), "a request is in order");
    switch (script.below(8)) {
        case 0:
            return script.u8() % 2 == 0 ? 0 : ENOBUFS;
        case 1:
            network.fail(socket, ECONNREFUSED);
            return 0;
        case 2: {
            const Answer stray = answerFrom(script, request);
            network.deliver(socket, stray.datagram);
            if (stray.isGenuine) {
                genuine.push_back(stray.datagram);
            }
            [[fallthrough]];
        }
        default: {
            const Answer answer = answerFrom(script, request);
            network.deliver(socket, answer.datagram);
            if (answer.isGenuine) {
                genuine.push_back(answer.datagram);
            }
            return 0;
        }
    }
}

RadPair *makeRequest(uint8_t options) {
    RadPair *list = nullptr;
    radPairAdd(&list, RAD_ATTR_USER_NAME, kName, 0);
    radPairAdd(&list, RAD_ATTR_USER_PASSWORD, kPassword, 0);
    if ((options & kEap) != 0) {
        radPairAdd(&list, RAD_ATTR_EAP_MESSAGE, "\x02\x01\x01\x06\x01", 5);
    }
    return list;
}

void readReply(const RadPair *reply) {
    for (const RadPair *pair = reply; pair != nullptr; pair = pair->next) {
        require(radDictGetAttr(pair->attrNum) != nullptr, "a pair has an attribute");
        radPairShow(pair);
    }
}

void ask(int code, uint8_t options) {
    RadPair *pairs = makeRequest(options);
    RadPair *reply = nullptr;
    const int result = radBuildAndSendReq(code, pairs, &reply);
    require(result >= 0 ? isGenuine(result) : reply == nullptr,
            "a reply is taken from who knows the secret alone");
    readReply(reply);
    radPairListFree(reply);
    radPairListFree(pairs);
}

void askAll(uint8_t options) {
    RadPair *pairs = makeRequest(options);
    RadPair *reply = nullptr;
    std::array<int32_t, RAD_SERVERS_MAX> results{};
    results.fill(kUntouched);
    radBuildAndSendReqCheckAllServer(RAD_CODE_ACCESS_REQUEST, pairs, &reply, results.data());
    for (const int32_t result : results) {
        require(result < 0 || isGenuine(result), "a result comes from who knows the secret alone");
    }
    readReply(reply);
    radPairListFree(reply);
    radPairListFree(pairs);
}

void expectLogin(int result) {
    require(result != 0 || isGenuine(RAD_CODE_ACCESS_ACCEPT), "nobody is let in without an accept");
}

// A refusal that ends with an MS-MPPE-Recv-Key returns 0, on purpose.
void expectMschapv2Login(int result) {
    static constexpr std::array<uint8_t, 5> kRecvKey{0, 0, 1, 55, RAD_MS_MPPE_RECV_KEY};
    const bool isKeyGiven = std::any_of(genuine.begin(), genuine.end(), [](const Bytes &reply) {
        return std::search(reply.begin(), reply.end(), kRecvKey.begin(), kRecvKey.end()) !=
               reply.end();
    });
    if (!isKeyGiven) {
        expectLogin(result);
    }
}

void call(unsigned kind, uint8_t options) {
    static constexpr std::array<uint8_t, 17> kChap{7};
    switch (kind) {
        case 0:
            return ask(RAD_CODE_ACCESS_REQUEST, options);
        case 1:
            return ask(RAD_CODE_ACCOUNTING_REQUEST, 0);
        case 2:
            return askAll(options);
        case 3:
            return expectLogin(radAuth(kName, kPassword));
        case 4:
            return expectLogin(radChapAuth(kName, kChap.data(), kChap.size(), kChap.data(), 16));
        case 5:
            return expectLogin(radMschap(kName, kPassword));
        default:
            return expectMschapv2Login(radMschapv2(kName, kPassword));
    }
}

void configure(uint8_t options) {
    const bool isResilient = (options & kResilient) != 0;
    radOptionSet(RAD_OPTION_BUILTIN_NT_RESPONSE, 1);
    radOptionSet(RAD_OPTION_RESILIENT, isResilient ? 1 : 0);
    radOptionSet(RAD_OPTION_REQUIRE_MESSAGE_AUTHENTICATOR,
                 (options & kRequiresSignature) != 0 ? 1 : 0);
    radOptionSet(RAD_OPTION_STATUS_SERVER, (options & kStatus) != 0 ? 1 : 0);
    radConfSetTimeout("3");
    radConfSetRetries("1");
    const char *host = network.address().c_str();
    for (int port = 1812; port <= ((options & kTwoServers) != 0 ? 1813 : 1812); ++port) {
        radConfAddAuthServ(host, port, -1, -1, kSecret, port == 1813 ? "port" : nullptr);
        radConfAddAcctServ(host, port, -1, -1, kSecret);
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Script script(data, size);
    const size_t before = liveBlocks();
    const unsigned kind = script.below(7);
    const uint8_t options = script.u8();
    const uint8_t failing = script.u8();
    genuine.clear();
    network.begin([&](int socket, ByteView request) { return onSend(script, socket, request); });
    configure(options);

    failAllocation(failing);
    call(kind, options);
    failAllocation(0);
    require(radLastError() == nullptr || radLastError()->step <= RAD_STEP_REPLY,
            "what became of it is known");

    radConfDelAuthServ();
    radConfDelAcctServ();
    radConfDelTimeout();
    radConfDelRetries();
    network.end();
    require(liveBlocks() == before, "every block is freed");
    return 0;
}
