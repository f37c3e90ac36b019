// The bus records between the authenticator and the EAP relay, and the key-information block in
// them.
#ifndef LANYARD_TOOLS_PNAC_WIRED_RELAY_RECORD_H
#define LANYARD_TOOLS_PNAC_WIRED_RELAY_RECORD_H

#include <cstdint>
#include <optional>
#include <string>

#include "tools/pnac_wired/eapol.h"

namespace lanyard::pnac {

// Bus command of records in both directions; the relay learns it from each record that it gets. Any
// but 4, which tells of changes to the database.
constexpr uint32_t kRecordCommand = 1;

// What a server's Session-Timeout means, by the type of its element.
enum class SessionRule : uint8_t {
    kReauthenticate = 2,  // of an Access-Accept: log in again
    kChallengeWait = 3,   // of an Access-Challenge: wait that long for the response
    kTerminate = 5        // of an Access-Accept: the end
};

struct SessionTimeout {
    SessionRule rule = SessionRule::kTerminate;
    uint32_t seconds = 0;
};

// Why the relay sends a Failure.
enum class FailureReason : uint8_t {
    kRejected = 1,  // by the server; of a relay that gives no reason, too
    kNoServer = 2,  // no server answered
    kNotSent = 3,   // the relay could not ask any
    kExpired = 4    // the relay has given up the conversation
};

// Keys and VLAN lie in the record that was parsed; empty for none.
struct KeyInfo {
    std::optional<SessionTimeout> session = {};
    ByteView recvKey = {};
    ByteView sendKey = {};
    FailureReason failure = FailureReason::kRejected;  // of a Failure
    ByteView vlan = {};                                // the port's, of a Success
};

struct RelayRecord {
    uint32_t cookie = 0;
    EapPacket eap = {};
    KeyInfo keyInfo = {};
};

// The port that a supplicant is at, for the server's eyes.
struct Port {
    uint32_t number = 0;    // the interface's index
    std::string name = {};  // of the interface, 1 to 253 bytes
    Mac address = {};
};

// The port-information block of a supplicant's records.
Bytes portInformation(const Mac &supplicant, const Port &port);

// A record for the relay. A relay that knows nothing of port information passes it over: it is no part
// of the payload.
Bytes buildRecord(uint32_t cookie, ByteView eap, ByteView portInformation = {});

// Reads a record of the relay. Nothing for one that does not hold together in every part: a verdict
// whose key information is broken is no verdict. What follows a request and is no key information is
// ignored.
std::optional<RelayRecord> parseRecord(ByteView bytes);

// Reads the block behind an EAP packet; an empty one holds nothing.
std::optional<KeyInfo> parseKeyInfo(ByteView block);

}  // namespace lanyard::pnac

#endif
