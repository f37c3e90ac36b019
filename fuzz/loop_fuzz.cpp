// Many requests in flight in one loop, and all that a network can bring them: replies, late ones, strays,
// forgeries and errors, in any order, while time passes and requests are cancelled.
#include <algorithm>
#include <array>
#include <cerrno>
#include <deque>
#include <memory>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/conf.h>
#include <lanyard/radius/engine.h>
#include <lanyard/radius/loop.h>
#include <lanyard/radius/status.h>

#include "fuzz/network.h"
#include "fuzz/server.h"

namespace {

using namespace lanyard::fuzz;

constexpr size_t kRequestsMax = 32;
constexpr size_t kManyRequestsMax = 300;  // more than one channel takes
constexpr int64_t kSecond = 1000000;

// What the far end has seen.
struct Sent {
    int socket = -1;
    Bytes request;
};

// Somebody who waits for an answer.
struct Waiting {
    RadRequest *request = nullptr;
    std::string name;  // User-Name, by which the far end knows it
    int told = 0;
};

struct World {
    explicit World(Script &theScript) : script(theScript) {}

    Script &script;
    size_t requestsMax = kRequestsMax;
    RadLoop *loop = radLoopCreate();
    std::vector<Sent> sent = {};
    std::vector<std::unique_ptr<Waiting>> all = {};
    std::vector<std::pair<std::string, uint8_t>> genuine = {};  // whose replies of which code
};

World *world = nullptr;

// The first attribute of every request is its name.
std::string nameIn(const Bytes &request) {
    constexpr size_t kFirst = 20;
    if (request.size() < kFirst + 2 || request[kFirst] != RAD_ATTR_USER_NAME) {
        return {};
    }
    return {request.begin() + kFirst + 2, request.begin() + kFirst + request[kFirst + 1]};
}

void start();

void note(void *context, RadRequest *request, int code, RadPair *reply) {
    auto &waiting = *static_cast<Waiting *>(context);
    require(request == waiting.request && ++waiting.told == 1, "each is told once");
    require(code == -1 || std::any_of(world->genuine.begin(), world->genuine.end(),
                                      [&](const auto &known) {
                                          return known.first == waiting.name &&
                                                 known.second == code;
                                      }),
            "a reply is taken from who knows the secret alone, and for its own request");
    require(code != -1 || reply == nullptr, "who failed has no list");
    radPairListFree(reply);
    if (world->script.below(8) == 1) {
        start();  // within the callback
    }
}

void start() {
    if (world->all.size() >= world->requestsMax) {
        return;
    }
    auto waiting = std::make_unique<Waiting>();
    waiting->name = "user" + std::to_string(world->all.size());
    RadPair *pairs = nullptr;
    if (radPairAdd(&pairs, RAD_ATTR_USER_NAME, waiting->name.c_str(), 0) == nullptr) {
        return;  // the far end would not know it
    }
    const uint8_t kind = world->script.u8();
    if ((kind & 1) != 0) {
        radPairAdd(&pairs, RAD_ATTR_EAP_MESSAGE, "\x02\x01\x01\x06\x01", 5);
    }
    if ((kind & 2) != 0) {
        radPairAdd(&pairs, RAD_ATTR_STATE, "state", 5);
    }
    const int code = (kind & 4) != 0 ? RAD_CODE_ACCOUNTING_REQUEST : RAD_CODE_ACCESS_REQUEST;
    // It may not be told before this returns.
    waiting->request = radRequestStart(world->loop, code, pairs, note, waiting.get());
    radPairListFree(pairs);
    if (waiting->request != nullptr) {
        world->all.push_back(std::move(waiting));
    }
}

void cancel() {
    if (world->all.empty()) {
        return;
    }
    const auto place =
        world->all.begin() +
        world->script.below(static_cast<unsigned>(std::min<size_t>(world->all.size(), UINT8_MAX)));
    if ((*place)->told == 0) {
        radRequestCancel((*place)->request);
        (*place)->told = 1;
    }
}

const Sent *pick() {
    if (world->sent.empty()) {
        return nullptr;
    }
    // The last ones are the ones that are awaited.
    const size_t back = world->script.u8() % world->sent.size();
    return &world->sent[world->sent.size() - 1 - back];
}

void deliver(bool elsewhere) {
    const Sent *sent = pick();
    const Sent *place = elsewhere ? pick() : sent;
    if (sent == nullptr) {
        return;
    }
    const Answer answer = answerFrom(world->script, sent->request);
    if (answer.isGenuine) {
        world->genuine.emplace_back(nameIn(sent->request), answer.datagram[0]);
    }
    network.deliver(place->socket, answer.datagram);
}

void fail() {
    const Sent *sent = pick();
    if (sent != nullptr) {
        static constexpr std::array kErrors = {ECONNREFUSED, EHOSTUNREACH, ENOMEM, EINTR};
        network.fail(sent->socket, kErrors[world->script.below(kErrors.size())]);
    }
}

int onSend(int socket, ByteView request) {
    require(isSound(request), "a request is in order");
    world->sent.push_back({.socket = socket, .request = {request.begin(), request.end()}});
    const bool fails = world->script.below(16) == 1;
    static constexpr std::array kErrors = {ECONNREFUSED, ENOBUFS, EPERM};
    return fails ? kErrors[world->script.below(kErrors.size())] : 0;
}

void step() {
    switch (world->script.below(10)) {
        case 0:
        case 1:
            return start();
        case 2:
            for (unsigned count = world->script.below(64); count > 0; --count) {
                start();
            }
            return;
        case 3:
        case 4:
            return deliver(false);
        case 5:
            return deliver(true);
        case 6:
            return cancel();
        case 7:
            return fail();
        case 8:
            return network.pass(world->script.u16() * int64_t{1000});
        default:
            require(radLoopRun(world->loop, world->script.u8() % 100) >= 0, "a loop runs");
    }
}

bool isAnyUntold() {
    return std::any_of(world->all.begin(), world->all.end(),
                       [](const auto &waiting) { return waiting->told == 0; });
}

bool isAnyPending() {
    RadServerStatus status{};
    for (int index = 0; radServerStatusAt(index, &status) == 0; ++index) {
        if (status.pending != 0) {
            return true;
        }
    }
    return false;
}

void configure(uint8_t options) {
    radOptionSet(RAD_OPTION_STATUS_SERVER, options & 1);
    radOptionSet(RAD_OPTION_REQUIRE_MESSAGE_AUTHENTICATOR, (options & 2) >> 1);
    radConfSetTimeout("3");
    radConfSetRetries("1");
    const char *host = network.address().c_str();
    for (int port = 1812; port < 1813 + (options >> 6); ++port) {
        radConfAddAuthServ(host, port, -1, -1, kSecret, "port");
        radConfAddAcctServ(host, port, -1, -1, kSecret);
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Script script(data, size);
    const size_t before = liveBlocks();
    network.begin(onSend);
    const uint8_t options = script.u8();
    configure(options);
    const uint8_t failing = script.u8();
    World theWorld(script);
    world = &theWorld;
    world->requestsMax = (options & 0x20) != 0 ? kManyRequestsMax : kRequestsMax;
    require(world->loop != nullptr, "there is a loop");

    failAllocation(failing);
    while (!script.atEnd()) {
        step();
    }
    failAllocation(0);
    // All that is left ends by itself, in half an hour at most; Status-Server packets too.
    const int64_t end = network.now() + 1800 * kSecond;
    while (isAnyUntold() || isAnyPending()) {
        require(network.now() < end, "every request ends, and nobody waits for a server any more");
        require(radLoopRun(world->loop, 1000) >= 0, "a loop runs");
    }
    radLoopDestroy(world->loop);
    radConfDelAuthServ();
    radConfDelAcctServ();
    radConfDelTimeout();
    radConfDelRetries();
    network.end();
    require(liveBlocks() == before, "every block is freed");
    world = nullptr;
    return 0;
}
