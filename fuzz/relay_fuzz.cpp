// The EAP relay, one conversation at a time or with many requests in flight: records from the bus, answers of
// a server that signs them, and time. First the mode, options and which allocation fails.
#include <algorithm>
#include <csignal>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/eap.h>
#include <lanyard/radius/engine.h>

#include "fuzz/bus.h"
#include "fuzz/network.h"
#include "fuzz/server.h"
#include "tools/pnac_wired/relay_record.h"

namespace {

using namespace lanyard::fuzz;
using lanyard::EapCode;

constexpr uint32_t kReplyCommand = 23;
constexpr size_t kHeadSize = sizeof(RadEapXbusMsg);

struct Sent {
    int socket;
    Bytes request;
};

struct World {
    Script &script;
    std::vector<Sent> sent = {};
    // Replies by who knows the secret; a challenge may carry any packet, a Success too.
    int accepts = 0;
    int challenges = 0;
    int successes = 0;
};

World *world = nullptr;

void answer(const Sent &sent) {
    const Answer made = answerFrom(world->script, sent.request);
    if (made.isGenuine) {
        world->accepts += made.datagram[0] == RAD_CODE_ACCESS_ACCEPT ? 1 : 0;
        world->challenges += made.datagram[0] == RAD_CODE_ACCESS_CHALLENGE ? 1 : 0;
    }
    network.deliver(sent.socket, made.datagram);
}

int onSend(int socket, ByteView request) {
    require(isSound(request), "a request is in order");
    world->sent.push_back({.socket = socket, .request = {request.begin(), request.end()}});
    if (world->script.below(4) != 1) {
        answer(world->sent.back());
    }
    return 0;
}

// What the relay tells Pnac is what pnac-wired understands, but for what a server has put into a challenge.
void onRecord(uint32_t module, ByteView record) {
    require(module == kPnac && record.size() > kHeadSize, "an answer goes to Pnac");
    const auto parsed = lanyard::pnac::parseRecord(record);
    require(parsed.has_value() || world->challenges > 0, "a verdict holds together");
    if (parsed && parsed->eap.code == EapCode::kSuccess) {
        ++world->successes;
        require(world->successes <= world->accepts + world->challenges,
                "a success comes from who knows the secret alone");
    }
}

Bytes packetFrom(Script &script) {
    switch (script.below(4)) {
        case 0:
            return script.longPart();
        case 1:
            return identityResponse("alice");
        default: {
            const uint8_t identifier = script.u8();
            const uint8_t type = script.u8();
            return eapResponse(identifier, type, script.longPart());
        }
    }
}

void handRecord() {
    Script &script = world->script;
    const uint8_t how = script.u8();
    const uint32_t cookie = (how & 0x80) != 0 ? script.u32() : (how & 7U);
    const Bytes packet = packetFrom(script);
    const Bytes behind = (how & 0x40) != 0 ? script.longPart() : Bytes();
    const auto size = static_cast<uint32_t>(packet.size());
    hand(17,
         busRecord(cookie, kReplyCommand, (how & 0x20) != 0 ? script.u32() : size, packet, behind));
}

void askStatus() {
    Bytes place(world->script.u16());
    auto size = static_cast<uint32_t>(place.size());
    const int status =
        radEapIoctlHandler(nullptr, nullptr, RAD_EAP_CMD_STATUS, nullptr, 0, place.data(), &size);
    require(status != 0 || size <= place.size(), "the status fits");
}

// A wait of the relay; false at the end.
bool onListen() {
    Script &script = world->script;
    if (script.atEnd()) {
        return false;
    }
    switch (script.below(8)) {
        case 0: {
            const uint32_t command = script.u8();
            hand(command, script.longPart());
            break;
        }
        case 1:
            if (!world->sent.empty()) {
                answer(world->sent[world->sent.size() - 1 - script.u8() % world->sent.size()]);
            }
            break;
        case 2:
            network.pass(script.u16() * int64_t{1000});
            break;
        case 3:
            for (unsigned passes = script.u8() * 16U; passes > 0; --passes) {
                radEapCtxTimeout();
            }
            break;
        case 4:
            askStatus();
            break;
        default:
            handRecord();
    }
    return true;
}

void configure(uint8_t options) {
    radOptionSet(RAD_OPTION_EAP_IN_FLIGHT, (options & 1) != 0 ? 2 + (options >> 4) : 0);
    radOptionSet(RAD_OPTION_REQUIRE_MESSAGE_AUTHENTICATOR, (options & 2) >> 1);
    radOptionSet(RAD_OPTION_RESILIENT, (options & 4) >> 2);
    radConfSetTimeout("3");
    radConfSetRetries("1");
    radConfAddAuthServ(network.address().c_str(), 1812, -1, -1, kSecret, nullptr);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Script script(data, size);
    const size_t before = liveBlocks();
    World theWorld{.script = script};
    world = &theWorld;
    network.begin(onSend);
    bus = {.listen = onListen, .sent = onRecord};
    configure(script.u8());

    failAllocation(script.u8());
    radEapInit();
    failAllocation(0);
    std::signal(SIGTERM, SIG_DFL);
    world = nullptr;

    require(radEapMsgQueue.first == nullptr, "no conversation is left");
    radConfDelAuthServ();
    radConfDelTimeout();
    radConfDelRetries();
    network.end();
    require(liveBlocks() == before, "every block is freed");
    return 0;
}
