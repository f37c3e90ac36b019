// What the tests of the EAP relay start from: a scripted RADIUS server, the library configured for
// it, a bus with the relay registered on it, and a record of the log. At the end no conversation
// and no memory may be left.
#ifndef LANYARD_TESTS_UNIT_EAP_FIXTURE_H
#define LANYARD_TESTS_UNIT_EAP_FIXTURE_H

#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <lanyard/radius/eap.h>

#include "tests/support/bytes.h"
#include "tests/support/configured_library.h"
#include "tests/support/guard_page.h"
#include "tests/support/log_recorder.h"
#include "tests/support/radius_wire.h"
#include "tests/support/scripted_server.h"
#include "tests/unit/login/outcome.h"
#include "tests/unit/relay/bus.h"

namespace lanyard::test {

// Pnac's module, a bus command of its packets, and what it asks replies to be sent with.
inline constexpr uint32_t kPnac = 6;
inline constexpr uint32_t kPacketCommand = 17;
inline constexpr uint32_t kReplyCommand = 23;

inline constexpr uint8_t kEapMd5Challenge = 4;

// An EAP packet: the length field counts what is there.
Bytes eapPacket(uint8_t code, uint8_t identifier, ByteView afterHeader = {});
Bytes identityResponse(uint8_t identifier, std::string_view name);
// A packet of that many bytes, of a type that is not Identity.
Bytes eapResponse(uint8_t identifier, size_t size);
Bytes eapRequest(uint8_t identifier, size_t size);

// An EAP packet as EAP-Message attributes of a reply, with the signature that they need; `more`
// comes before them.
Attributes eapMessage(ByteView packet, Attributes more = {});

// A record from Pnac; the length word counts the packet unless it is given.
Bytes busRecord(uint32_t cookie, ByteView packet, uint32_t command = kReplyCommand,
                std::optional<uint32_t> length = {});

// Hands the relay's bus handler a message that ends where its guard begins.
int deliver(uint32_t command, ByteView message);
// The same for a record of Pnac's.
int fromPnac(uint32_t cookie, ByteView packet, uint32_t command = kReplyCommand);

// The conversations, in order.
std::vector<RadEapQueueEntry *> conversations();
// The one with that cookie; fails the test when there is none.
RadEapQueueEntry &conversation(uint32_t cookie);

// The packet that waits; nothing for none.
std::optional<Bytes> pendingPacket(const RadEapQueueEntry &entry);

// What a text attribute of the library holds.
Bytes valueOf(const RadPair &pair);

// Of lines as EXPECT_LOG takes them those of the relay and of the database functions.
std::vector<std::string> ofRelay(std::vector<std::string> lines);

class EapTest : public testing::Test {
  protected:
    // With a partition of that many bytes; 0: as the library makes it by itself.
    explicit EapTest(uint32_t partition = 0);
    void TearDown() override;

    // The lines of the relay.
    [[nodiscard]] std::vector<std::string> told() const { return ofRelay(log.log()); }
    [[nodiscard]] std::vector<std::string> problems() const { return ofRelay(log.problemLog()); }

    // One packet from Pnac and one relay pass.
    static void relay(uint32_t cookie, ByteView packet);

    // Expects exactly these payloads to have gone to Pnac in the conversation, each in a record of
    // the right form, and forgets them.
    void expectSent(uint32_t cookie, const std::vector<Bytes> &payloads);

    ScriptedServer server{kSecret};
    const ConfiguredLibrary library;
    TestBus bus;
    LogRecorder log;
};

}  // namespace lanyard::test

#endif
