// The port-information block that follows a packet from Pnac: what of it is in the request.
#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/eap.h>

#include "fuzz/bus.h"
#include "fuzz/network.h"
#include "fuzz/server.h"
#include "tests/support/radius_wire.h"

namespace {

using namespace lanyard::fuzz;
using lanyard::test::Attribute;

constexpr size_t kBlockMax = 320;  // what a relay keeps of one
constexpr uint8_t kNasPort = 5;
constexpr uint8_t kCalledStation = 30;
constexpr uint8_t kCallingStation = 31;
constexpr uint8_t kPortType = 61;
constexpr uint8_t kPortId = 87;

Bytes addressText(ByteView mac) {
    std::array<char, 18> text{};
    (void)std::snprintf(text.data(), text.size(), "%02X-%02X-%02X-%02X-%02X-%02X", mac[0], mac[1],
                        mac[2], mac[3], mac[4], mac[5]);
    return {text.begin(), text.end() - 1};
}

// Another reading of the block: the attributes in their order. None for a block that is broken.
std::vector<Attribute> attributesOf(ByteView block) {
    Bytes supplicant;
    Bytes port;
    Bytes number;
    Bytes name;
    if (block.size() < 2 || block.size() > kBlockMax ||
        (size_t{block[0]} << 8 | block[1]) != block.size()) {
        return {};
    }
    for (ByteView left = block.subspan(2); !left.empty(); left = left.subspan(left[1])) {
        if (left.size() < 2 || left[1] < 2 || left[1] > left.size()) {
            return {};
        }
        const Bytes value(left.begin() + 2, left.begin() + left[1]);
        switch (left[0]) {
            case RAD_EAP_PORT_SUPPLICANT:
                supplicant = value.size() == 6 ? value : supplicant;
                break;
            case RAD_EAP_PORT_ADDRESS:
                port = value.size() == 6 ? value : port;
                break;
            case RAD_EAP_PORT_NUMBER:
                number = value.size() == 4 ? value : number;
                break;
            case RAD_EAP_PORT_NAME:
                name = value;
                break;
            default:
                break;
        }
    }
    std::vector<Attribute> attributes;
    const auto add = [&](uint8_t type, const Bytes &value) {
        if (!value.empty()) {
            attributes.push_back({.type = type, .value = value});
        }
    };
    add(kNasPort, number);
    add(kPortType, {0, 0, 0, 15});
    add(kPortId, name);
    add(kCallingStation, supplicant.empty() ? Bytes() : addressText(supplicant));
    add(kCalledStation, port.empty() ? Bytes() : addressText(port));
    return attributes;
}

bool isOfPort(const Attribute &attribute) {
    static constexpr std::array kTypes = {kNasPort, kPortType, kPortId, kCallingStation,
                                          kCalledStation};
    return std::find(kTypes.begin(), kTypes.end(), attribute.type) != kTypes.end();
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const size_t before = liveBlocks();
    std::optional<Bytes> request;
    network.begin([&](int, ByteView datagram) {
        request = Bytes(datagram.begin(), datagram.end());
        return 0;
    });
    bus = {.sent = [](uint32_t, ByteView) {}};
    radConfSetTimeout("1");
    radConfSetRetries("0");
    radConfAddAuthServ(network.address().c_str(), 1812, -1, -1, kSecret, nullptr);

    const Bytes packet = identityResponse("alice");
    const ByteView block(data, size);
    hand(17, busRecord(1, 23, static_cast<uint32_t>(packet.size()), packet, block));
    radEapRecvTask();
    require(request && isSound(*request), "the request is in order");
    std::vector<Attribute> attributes = lanyard::test::parseAttributes(*request);
    std::erase_if(attributes, [](const Attribute &attribute) { return !isOfPort(attribute); });
    require(attributes == attributesOf(block), "the request says of the port what the block says");

    radEapMsgQueueCleanUp();
    radConfDelAuthServ();
    radConfDelTimeout();
    radConfDelRetries();
    network.end();
    require(liveBlocks() == before, "every block is freed");
    return 0;
}
