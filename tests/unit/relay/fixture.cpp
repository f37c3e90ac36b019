#include "tests/unit/relay/fixture.h"

#include <algorithm>
#include <cstring>

#include <lanyard/radius/attr.h>

namespace lanyard::test {
namespace {

constexpr uint8_t kEapMessageType = 79;
constexpr size_t kEapHeader = 4;
constexpr size_t kChunk = 253;

Bytes wordOf(uint32_t word) {
    Bytes bytes(sizeof(word));
    std::memcpy(bytes.data(), &word, sizeof(word));
    return bytes;
}

Bytes typedPacket(uint8_t code, uint8_t identifier, size_t size) {
    Bytes after(size - kEapHeader);
    for (size_t index = 0; index < after.size(); ++index) {
        after[index] = index == 0 ? kEapMd5Challenge : static_cast<uint8_t>(index);
    }
    return eapPacket(code, identifier, after);
}

}  // namespace

Bytes eapPacket(uint8_t code, uint8_t identifier, ByteView afterHeader) {
    const size_t size = kEapHeader + afterHeader.size();
    return concatenate({Bytes{code, identifier, static_cast<uint8_t>(size >> 8),
                              static_cast<uint8_t>(size & 0xff)},
                        afterHeader});
}

Bytes identityResponse(uint8_t identifier, std::string_view name) {
    return eapPacket(2, identifier, concatenate({Bytes{1}, fromText(name)}));
}

Bytes eapResponse(uint8_t identifier, size_t size) {
    return typedPacket(2, identifier, size);
}

Bytes eapRequest(uint8_t identifier, size_t size) {
    return typedPacket(1, identifier, size);
}

Attributes eapMessage(ByteView packet, Attributes more) {
    while (!packet.empty()) {
        const ByteView chunk = packet.first(std::min(packet.size(), kChunk));
        more.add(kEapMessageType, chunk);
        packet = packet.subspan(chunk.size());
    }
    return more.addMessageAuthenticator();
}

Bytes busRecord(uint32_t cookie, ByteView packet, uint32_t command,
                std::optional<uint32_t> length) {
    return concatenate({wordOf(cookie), wordOf(command),
                        wordOf(length.value_or(static_cast<uint32_t>(packet.size()))), packet});
}

int deliver(uint32_t command, ByteView message) {
    GuardedBuffer buffer(message);
    buffer.makeReadOnly();
    return radEapIoctlHandler(nullptr, nullptr, command, buffer.data(),
                              static_cast<uint32_t>(buffer.size()), nullptr, nullptr);
}

int fromPnac(uint32_t cookie, ByteView packet, uint32_t command) {
    return deliver(kPacketCommand, busRecord(cookie, packet, command));
}

std::vector<RadEapQueueEntry *> conversations() {
    std::vector<RadEapQueueEntry *> all;
    for (PalListNode *node = radEapMsgQueue.first; node != nullptr; node = node->next) {
        all.push_back(reinterpret_cast<RadEapQueueEntry *>(node));
    }
    EXPECT_EQ(all.empty() ? nullptr : &all.back()->node, radEapMsgQueue.last);
    return all;
}

RadEapQueueEntry &conversation(uint32_t cookie) {
    for (RadEapQueueEntry *entry : conversations()) {
        if (entry->cookie == cookie) {
            return *entry;
        }
    }
    ADD_FAILURE() << "no conversation " << cookie;
    static RadEapQueueEntry none;
    none = {};
    return none;
}

std::optional<Bytes> pendingPacket(const RadEapQueueEntry &entry) {
    if (entry.packet == nullptr) {
        EXPECT_EQ(0U, entry.packetLen);
        return std::nullopt;
    }
    return Bytes(entry.packet, entry.packet + entry.packetLen);
}

Bytes valueOf(const RadPair &pair) {
    const auto *bytes = reinterpret_cast<const uint8_t *>(&pair.strValue[0]);
    return {bytes, bytes + std::min<uint32_t>(pair.numValue, RAD_VALUE_MAX)};
}

std::vector<std::string> ofRelay(std::vector<std::string> lines) {
    std::erase_if(lines, [](const std::string &line) { return !line.starts_with("device "); });
    return lines;
}

EapTest::EapTest(uint32_t partition)
    : library({.authServers = {serverEntry(server, kPatience)}, .partition = partition}) {
    EXPECT_EQ(nullptr, radEapMsgQueue.first);
    EXPECT_EQ(0, radEapXbusInit());
    log.clear();
}

void EapTest::TearDown() {
    EXPECT_EQ(0, radEapMsgQueueCleanUp());
    pRadEapXbusCtx = nullptr;
}

void EapTest::relay(uint32_t cookie, ByteView packet) {
    EXPECT_EQ(0, fromPnac(cookie, packet));
    EXPECT_EQ(0, radEapRecvTask());
}

void EapTest::expectSent(uint32_t cookie, const std::vector<Bytes> &payloads) {
    ASSERT_EQ(payloads.size(), bus.sent.size());
    for (size_t index = 0; index < payloads.size(); ++index) {
        const Sent &sent = bus.sent[index];
        EXPECT_EQ(kPnac, sent.module);
        EXPECT_EQ(kReplyCommand, sent.command);
        EXPECT_BYTES_EQ(busRecord(cookie, payloads[index], 0xffffffff), sent.record);
    }
    bus.sent.clear();
}

}  // namespace lanyard::test
