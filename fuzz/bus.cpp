#include "fuzz/bus.h"

#include <array>
#include <csignal>
#include <cstring>

#include <lanyard/radius/eap.h>
#include <xbus.h>

struct XbusCtx {
    int unused;
};

namespace lanyard::fuzz {
namespace {

XbusCtx context;

void add(Bytes &bytes, ByteView more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
}

void addWord(Bytes &bytes, uint32_t word) {
    std::array<uint8_t, sizeof(word)> place{};
    std::memcpy(place.data(), &word, sizeof(word));
    add(bytes, place);
}

}  // namespace

Bus bus;

Bytes busRecord(uint32_t cookie, uint32_t command, uint32_t length, ByteView packet,
                ByteView behind) {
    Bytes record;
    for (const uint32_t word : {cookie, command, length}) {
        addWord(record, word);
    }
    add(record, packet);
    add(record, behind);
    record.shrink_to_fit();
    return record;
}

Bytes eapResponse(uint8_t identifier, uint8_t type, ByteView data) {
    const size_t size = 5 + data.size();
    Bytes packet = {2, identifier, static_cast<uint8_t>(size >> 8), static_cast<uint8_t>(size),
                    type};
    add(packet, data);
    return packet;
}

Bytes identityResponse(std::string_view name) {
    return eapResponse(7, 1, {reinterpret_cast<const uint8_t *>(name.data()), name.size()});
}

int hand(uint32_t command, Bytes message) {
    // No byte of room behind it.
    const Bytes exact(message.begin(), message.end());
    return radEapIoctlHandler(nullptr, nullptr, command, const_cast<uint8_t *>(exact.data()),
                              static_cast<uint32_t>(exact.size()), nullptr, nullptr);
}

}  // namespace lanyard::fuzz

using lanyard::fuzz::bus;

int xbusInit() {
    return 0;
}

XbusCtx *xbusRegister(uint32_t /*module*/, uint32_t /*mode*/, XbusHandler /*handler*/,
                      void * /*argument*/) {
    return &lanyard::fuzz::context;
}

int xbusListen(XbusCtx * /*context*/, uint32_t /*microseconds*/) {
    if (!bus.listen()) {
        radEapExit(SIGTERM);
        return 0;
    }
    return 1;
}

int xbusDescriptor(XbusCtx * /*context*/) {
    return -1;
}

int xbusIoctl(XbusCtx * /*context*/, uint32_t module, uint32_t /*command*/, const void *buf,
              uint32_t len, void * /*out*/, uint32_t * /*outLen*/, uint32_t /*flags*/,
              uint32_t /*reserved1*/, uint32_t /*reserved2*/) {
    bus.sent(module, {static_cast<const uint8_t *>(buf), len});
    return 0;
}

int xbusUnRegister(XbusCtx * /*context*/) {
    return 0;
}

int xbusDeInit() {
    return 0;
}

// No process is made, and nobody waits.
int daemon(int /*nochdir*/, int /*noclose*/) noexcept {
    return 0;
}

int palTaskDelay(int /*milliseconds*/) {
    return 0;
}

int palTaskNameToId(const char * /*name*/) {
    return -1;
}
