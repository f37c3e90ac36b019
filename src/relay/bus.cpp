// The relay on the management bus: registration, the handler of what comes in, and what goes to
// Pnac.
#include <array>
#include <cerrno>
#include <span>

#include <lanyard/radius/eap.h>
#include <lanyard/radius/mgmt.h>
#include <xbus.h>

#include "base/log.h"
#include "base/partition.h"
#include "base/wire.h"
#include "relay/conversation.h"
#include "relay/eap_packet.h"
#include "relay/element.h"
#include "relay/in_flight.h"
#include "relay/record.h"

XbusCtx *pRadEapXbusCtx = nullptr;

namespace lanyard {
namespace {

int sendToPnac(uint32_t module, uint32_t command, std::span<const uint8_t> record) {
    uint32_t outLen = 0;
    if (xbusIoctl(pRadEapXbusCtx, module, command, record.data(),
                  static_cast<uint32_t>(record.size()), nullptr, &outLen, XBUS_NO_WAIT, 0,
                  0) == -1) {
        radDeviceLogAs("radEapSendRtn", kLogError, "xbusIoctl failed\n");
        return -1;
    }
    return 0;
}

// Tells Pnac that a response has found no room. There is none for the record either, and no
// conversation that the usual way of an answer could look up.
void refuse(uint32_t cookie, uint32_t command, uint8_t identifier) {
    constexpr uint16_t kReasonSize = kElementHeaderSize + 1;
    constexpr uint16_t kBlockSize = kBlockHeaderSize + kReasonSize;
    const uint16_t blockSize = servesManyAtOnce() ? kBlockSize : uint16_t{0};
    const uint32_t length = uint32_t{kEapHeaderSize} + blockSize;
    std::array<uint8_t, kRecordHeadSize + kEapHeaderSize + kBlockSize> record = {};
    ByteWriter writer(record);
    writeRecordHead(writer, {.cookie = cookie, .command = RAD_EAP_NO_CMD, .length = length});
    writeEapHead(writer,
                 {.code = EapCode::kFailure, .identifier = identifier, .length = kEapHeaderSize});
    writer.u16(blockSize);
    writer.u8(RAD_EAP_FAILURE_REASON);
    writer.u8(kReasonSize);
    writer.u8(RAD_EAP_FAILED_NOT_SENT);
    sendToPnac(RAD_EAP_PNAC_MODULE, command, std::span(record).first(kRecordHeadSize + length));
}

// Queues the EAP packet of a record. A record that is shorter than it says is dropped; a response that
// finds no room is refused.
void receiveRecord(std::span<const uint8_t> record) {
    ByteReader reader(record);
    const RadEapXbusMsg head = readRecordHead(reader);
    const auto length = reader.ok() ? head.length : static_cast<uint32_t>(record.size());
    const auto packet = reader.take(head.length);
    if (!reader.ok()) {
        radDeviceLogAs("radEapMsgQueueAdd", kLogError,
                       "radEapMsgQueueAdd: Invalid EAP packet length(%d)\n",
                       static_cast<int>(length));
        return;
    }
    // Looked up before, because a conversation without room ends.
    RadEapQueueEntry *known = findEntry(head.cookie);
    const uint32_t command = known ? known->replyCmd : head.command;
    if (known && !isWanted(*known, packet)) {
        return;
    }
    if (!known && servesManyAtOnce()) {
        makeRoom();
    }
    if (radEapRecv(packet.data(), static_cast<int32_t>(packet.size()), head.cookie,
                   RAD_EAP_PNAC_MODULE, head.command) != -1 ||
        head.cookie == 0) {
        RadEapQueueEntry *conversation = findEntry(head.cookie);
        if (conversation) {
            keepPortInfo(*conversation, reader.rest());
        }
        return;
    }
    ByteReader packetReader(packet);
    const EapHead eap = readEapHead(packetReader);
    if (eap.code == EapCode::kResponse) {
        refuse(head.cookie, command, eap.identifier);
    }
}

// Where replies of a conversation go: the module of the last conversation, the command of the last
// one with that cookie. False when there is no conversation at all.
bool findDestination(uint32_t cookie, uint32_t &module, uint32_t &command) {
    command = RAD_EAP_NO_CMD;
    for (const RadEapQueueEntry *entry = firstEntry(); entry; entry = nextEntry(entry)) {
        module = entry->destModule;
        if (entry->cookie == cookie) {
            command = entry->replyCmd;
        }
    }
    return firstEntry() != nullptr;
}

}  // namespace
}  // namespace lanyard

using namespace lanyard;

int radEapXbusInit(void) {
    if (xbusInit() != 0) {
        radDeviceLog(kLogError, "failed to initialize XBUS \n");
        return -1;
    }
    pRadEapXbusCtx = xbusRegister(RAD_EAP_MODULE, XBUS_MODE_HANDLER, radEapIoctlHandler, nullptr);
    if (!pRadEapXbusCtx) {
        radDeviceLog(kLogError, "xbusRegister failed. errno=%d\n", errno);
        xbusDeInit();
        return -1;
    }
    return 0;
}

int radEapIoctlHandler(void * /*busArg1*/, void * /*busArg2*/, uint32_t cmd, void *buf,
                       uint32_t len, void *out, uint32_t *outLen) {
    if (cmd == RAD_EAP_CMD_STATUS && servesManyAtOnce()) {
        return writeStatus(static_cast<char *>(out), outLen);
    }
    if (!buf) {
        radDeviceLog(kLogError, "Invalid arguments to ioctl handler \n");
        return -1;
    }
    if (cmd == RAD_EAP_CMD_DB_UPDATE) {
        return radiusMgmtDBUpdateHandler(buf, len, static_cast<char *>(out), outLen ? *outLen : 0);
    }
    receiveRecord({static_cast<const uint8_t *>(buf), len});
    return 0;
}

int radEapSendRtn(const uint8_t *payload, int32_t length, uint32_t cookie) {
    if (!payload || !cookie || length < 1) {
        radDeviceLog(kLogError, "radEapSendRtn: Invalid Arguments\n");
        return -1;
    }
    uint32_t module = 0;
    uint32_t command = 0;
    if (!findDestination(cookie, module, command)) {
        return -1;
    }
    const std::span content(payload, static_cast<size_t>(length));
    const size_t size = kRecordHeadSize + content.size();
    const auto record = allocateSecret(size);
    if (!record) {
        radDeviceLog(kLogError, "radEapSendRtn: failed to allocate buffer\n");
        return -1;
    }
    ByteWriter writer({record.get(), size});
    writeRecordHead(writer, {.cookie = cookie,
                             .command = RAD_EAP_NO_CMD,
                             .length = static_cast<uint32_t>(content.size())});
    writer.bytes(content);
    return sendToPnac(module, command, {record.get(), size});
}
