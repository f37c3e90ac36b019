// Port information of a record, as attributes of a request.
#include "relay/port_info.h"

#include <array>
#include <cstdio>
#include <optional>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/dict.h>
#include <lanyard/radius/relay.h>

#include "attr/pair.h"
#include "base/wire.h"
#include "relay/element.h"

namespace lanyard {
namespace {

constexpr uint32_t kEthernet = 15;  // NAS-Port-Type, RFC 2865 section 5.41
constexpr size_t kMacSize = 6;

using Bytes = std::span<const uint8_t>;

struct PortInfo {
    Bytes supplicant;
    Bytes port;
    Bytes number;
    Bytes name;
};

std::optional<PortInfo> parse(Bytes block) {
    ByteReader reader(block);
    if (reader.u16() != block.size()) {
        return std::nullopt;
    }
    PortInfo info;
    while (reader.left() > 0) {
        const uint8_t type = reader.u8();
        const size_t length = reader.u8();
        const Bytes value =
            reader.take(length < kElementHeaderSize ? SIZE_MAX : length - kElementHeaderSize);
        if (!reader.ok()) {
            return std::nullopt;
        }
        if (type == RAD_EAP_PORT_SUPPLICANT && value.size() == kMacSize) {
            info.supplicant = value;
        } else if (type == RAD_EAP_PORT_ADDRESS && value.size() == kMacSize) {
            info.port = value;
        } else if (type == RAD_EAP_PORT_NUMBER && value.size() == sizeof(uint32_t)) {
            info.number = value;
        } else if (type == RAD_EAP_PORT_NAME) {
            info.name = value;
        }
    }
    return info;
}

// An attribute, whether the dictionary knows it or not: that is the device's choice.
RadDictAttr describe(const char *name, int attrNum, int type) {
    RadDictAttr attribute{.name = {}, .attrNum = attrNum, .type = type, .next = nullptr};
    std::snprintf(attribute.name, sizeof(attribute.name), "%s", name);
    return attribute;
}

bool add(PairList &request, const RadDictAttr &attribute, const void *value, size_t length) {
    return request.append(newPair(attribute, value, static_cast<int>(length)).release());
}

bool addNumber(PairList &request, const char *name, int attrNum, uint32_t number) {
    const RadDictAttr attribute = describe(name, attrNum, RAD_TYPE_INTEGER);
    return add(request, attribute, &number, sizeof(number));
}

// Nothing for the empty text.
bool addText(PairList &request, const char *name, int attrNum, Bytes text) {
    const RadDictAttr attribute = describe(name, attrNum, RAD_TYPE_STRING);
    return text.empty() || add(request, attribute, text.data(), text.size());
}

// An address as RFC 3580 section 3.20 writes it: 02-00-00-00-00-01.
bool addAddress(PairList &request, const char *name, int attrNum, Bytes mac) {
    if (mac.empty()) {
        return true;
    }
    std::array<char, sizeof "00-00-00-00-00-00"> text{};
    std::snprintf(text.data(), text.size(), "%02X-%02X-%02X-%02X-%02X-%02X", mac[0], mac[1], mac[2],
                  mac[3], mac[4], mac[5]);
    return addText(request, name, attrNum,
                   {reinterpret_cast<const uint8_t *>(text.data()), text.size() - 1});
}

}  // namespace

bool addPortInfo(Bytes block, PairList &request) {
    const auto info = block.empty() ? std::nullopt : parse(block);
    if (!info) {
        return true;
    }
    if (!info->number.empty() &&
        !addNumber(request, "NAS-Port", RAD_ATTR_NAS_PORT, ByteReader(info->number).u32())) {
        return false;
    }
    return addNumber(request, "NAS-Port-Type", RAD_ATTR_NAS_PORT_TYPE, kEthernet) &&
           addText(request, "NAS-Port-Id", RAD_ATTR_NAS_PORT_ID, info->name) &&
           addAddress(request, "Calling-Station-Id", RAD_ATTR_CALLING_STATION_ID,
                      info->supplicant) &&
           addAddress(request, "Called-Station-Id", RAD_ATTR_CALLED_STATION_ID, info->port);
}

}  // namespace lanyard
