// Accounting records (RFC 2866): what happened to a session, or to the whole device, as a packet that no server has
// been chosen for.
#ifndef LANYARDCTL_ACCOUNTING_RECORD_H
#define LANYARDCTL_ACCOUNTING_RECORD_H

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "radius_packet.h"

namespace lanyardctl {

// Groups of fields.
enum : unsigned { kSession = 1, kCounters = 2, kCause = 4 };

inline constexpr uint32_t kAccountingOn = 7;

// What a record says.
struct StatusType {
    const char *command;
    uint32_t value;  // of Acct-Status-Type
    const char *name;
    const char *help;
    unsigned takes;  // groups
};
inline constexpr auto kStatusTypes = std::to_array<StatusType>({
    {"start", 1, "Start", "A session begins", kSession},
    {"interim", 3, "Interim-Update", "A session goes on", kSession | kCounters},
    {"stop", 2, "Stop", "A session has ended", kSession | kCounters | kCause},
    {"on", kAccountingOn, "Accounting-On", "This device has started: it has no sessions", 0},
    {"off", 8, "Accounting-Off", "This device is going to end: all its sessions have ended", 0},
});

// How the value of a field is read.
enum class Form {
    kText,          // as it is
    kTextOrBytes,   // with 0x in front as hexadecimal digits
    kOfDictionary,  // by the type that the dictionary has for it
    kCounter        // a number of any size
};

// An attribute with an option of its own.
struct Field {
    const char *option;
    int number;
    Form form;
    unsigned group;
    const char *type;
    const char *help;
    int gigawords = 0;  // the attribute that counts how often the number has passed 2^32
    bool repeats = false;
};
inline constexpr auto kFields = std::to_array<Field>({
    {"--user", 1, Form::kText, kSession, "NAME", "who is logged in"},
    {"--class", 25, Form::kTextOrBytes, kSession, "TEXT",
     "Class of the Access-Accept, 0x and hexadecimal digits for bytes; once for each", 0, true},
    {"--nas-port-id", 87, Form::kText, kSession, "TEXT", "port of this device"},
    {"--calling-station-id", 31, Form::kText, kSession, "TEXT", "address of the user's device"},
    {"--called-station-id", 30, Form::kText, kSession, "TEXT", "address that it came to"},
    {"--framed-ip-address", 8, Form::kOfDictionary, kSession, "ADDRESS", "its IPv4 address"},
    {"--session-time", 46, Form::kOfDictionary, kCounters, "SECONDS", "how long the session lasts"},
    {"--input-octets", 42, Form::kCounter, kCounters, "NUMBER", "bytes from the user", 52},
    {"--output-octets", 43, Form::kCounter, kCounters, "NUMBER", "bytes to the user", 53},
    {"--input-packets", 47, Form::kCounter, kCounters, "NUMBER", "packets from the user"},
    {"--output-packets", 48, Form::kCounter, kCounters, "NUMBER", "packets to the user"},
    {"--terminate-cause", 49, Form::kOfDictionary, kCause, "CAUSE",
     "why it ended, such as User-Request or Idle-Timeout"},
});

struct Record {
    int64_t id = 0;       // in the queue, in the order of the records
    int64_t made = 0;     // seconds since 1970: Event-Timestamp
    std::string session;  // Acct-Session-Id
    uint32_t status = 0;  // Acct-Status-Type
    Bytes packet = {};    // an Accounting-Request without what is another for each try

    // It is about the whole device, and so about all sessions.
    [[nodiscard]] bool isOfDevice() const { return status >= kAccountingOn; }
};

// What the command line says: the values of each of kFields, and NAME=VALUE for other attributes.
struct Given {
    std::string session;
    std::array<std::vector<std::string>, kFields.size()> values;
    std::vector<std::string> attributes;
};

// Adds what records need and the dictionary that is loaded lacks: the built-in table has neither Class nor
// Event-Timestamp.
void completeDictionary();

// A record of now. Throws a Failure (kRefused) that says what is wrong with the values.
Record makeRecord(const StatusType &status, const Given &given);

// An Acct-Session-Id that no other session has.
std::string newSession();

// The name of the status of a record; "Start".
std::string statusOf(const Record &record);
// User-Name; "" for none.
std::string userOf(const Record &record);

}  // namespace lanyardctl

#endif
