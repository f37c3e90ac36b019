#include "accounting_record.h"

#include <algorithm>
#include <arpa/inet.h>
#include <ctime>
#include <limits>
#include <optional>
#include <string_view>
#include <sys/random.h>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/engine.h>

#include "attributes.h"
#include "dictionary.h"
#include "failure.h"
#include "vendors.h"
#include "words.h"

namespace lanyardctl {

namespace {

constexpr auto kDefinitions = std::to_array<const char *>({
    "User-Name 1 string",
    "Framed-IP-Address 8 ipaddr",
    "Class 25 string",
    "Vendor-Specific 26 string",
    "Called-Station-Id 30 string",
    "Calling-Station-Id 31 string",
    "Acct-Status-Type 40 integer",
    "Acct-Delay-Time 41 integer",
    "Acct-Input-Octets 42 integer",
    "Acct-Output-Octets 43 integer",
    "Acct-Session-Id 44 string",
    "Acct-Session-Time 46 integer",
    "Acct-Input-Packets 47 integer",
    "Acct-Output-Packets 48 integer",
    "Acct-Terminate-Cause 49 integer",
    "Acct-Input-Gigawords 52 integer",
    "Acct-Output-Gigawords 53 integer",
    "Event-Timestamp 55 date",
    "NAS-Port-Id-Text 87 string",
});

// Attributes that --attribute does not take, and why.
struct Barred {
    int number;
    const char *reason;
};
constexpr auto kBarred = std::to_array<Barred>({
    {RAD_ATTR_USER_PASSWORD, "has no place in accounting"},
    {RAD_ATTR_CHAP_PASSWORD, "has no place in accounting"},
    {RAD_ATTR_NAS_IP_ADDRESS, "is the library's to set"},
    {RAD_ATTR_REPLY_MESSAGE, "has no place in accounting"},
    {RAD_ATTR_STATE, "has no place in accounting"},
    {RAD_ATTR_NAS_IDENTIFIER, "is the library's to set"},
    {RAD_ATTR_ACCT_STATUS_TYPE, "is the command's to set"},
    {RAD_ATTR_ACCT_DELAY_TIME, "is set when the record is sent"},
    {RAD_ATTR_ACCT_SESSION_ID, "has an option of its own, --session-id"},
    {RAD_ATTR_ACCT_INPUT_GIGAWORDS, "comes with --input-octets"},
    {RAD_ATTR_ACCT_OUTPUT_GIGAWORDS, "comes with --output-octets"},
    {RAD_ATTR_EVENT_TIMESTAMP, "is the time at which the record is made"},
    {RAD_ATTR_CHAP_CHALLENGE, "has no place in accounting"},
    {RAD_ATTR_EAP_MESSAGE, "has no place in accounting"},
    {RAD_ATTR_MESSAGE_AUTHENTICATOR, "has no place in accounting"},
});

constexpr uint64_t kIntegerMax = std::numeric_limits<uint32_t>::max();

[[noreturn]] void refuse(const std::string &label, const std::string &problem) {
    throw Failure(label + ": " + problem, kRefused);
}

Bytes bytesOf(uint32_t number) {
    const uint32_t ordered = htonl(number);
    const auto *bytes = reinterpret_cast<const uint8_t *>(&ordered);
    return {bytes, bytes + sizeof(ordered)};
}

uint64_t numberUpTo(uint64_t most, const std::string &label, const std::string &text) {
    const auto number = toNumber<uint64_t>(text);
    if (!number || *number > most) {
        refuse(label, "'" + text + "' is no whole number from 0 to " + std::to_string(most));
    }
    return *number;
}

Bytes textOf(const std::string &label, const std::string &text, bool takesHex) {
    Bytes bytes(text.begin(), text.end());
    if (takesHex && text.starts_with("0x")) {
        bytes.clear();
        for (size_t i = 2; i < text.size(); i += 2) {
            const auto byte = toNumber<uint8_t>(text.substr(i, 2), 16);
            if (!byte || text.size() % 2 != 0) {
                refuse(label, "'" + text + "' is not 0x and pairs of hexadecimal digits");
            }
            bytes.push_back(*byte);
        }
    }
    if (bytes.empty() || bytes.size() > RAD_VALUE_MAX) {
        refuse(label, "takes 1 to " + std::to_string(RAD_VALUE_MAX) + " bytes");
    }
    return bytes;
}

Bytes addressOf(const std::string &label, const std::string &text) {
    in_addr address{};
    if (inet_pton(AF_INET, text.c_str(), &address) != 1) {
        refuse(label, "'" + text + "' is no IPv4 address");
    }
    return bytesOf(ntohl(address.s_addr));
}

// A number, or the name of one.
Bytes integerOf(const std::string &label, const RadDictAttr &attribute, const std::string &text) {
    if (const auto number = toNumber<uint64_t>(text); number && *number <= kIntegerMax) {
        return bytesOf(static_cast<uint32_t>(*number));
    }
    std::string names;
    for (const RadDictValue *value : valuesOf(attribute.name)) {
        if (text == value->valueName) {
            return bytesOf(static_cast<uint32_t>(value->value));
        }
        names += (names.empty() ? ", or one of " : ", ") + std::string(value->valueName);
    }
    refuse(label,
           "'" + text + "' is no whole number from 0 to " + std::to_string(kIntegerMax) + names);
}

Bytes valueOf(const std::string &label, const RadDictAttr &attribute, const std::string &text) {
    switch (attribute.type) {
        case RAD_TYPE_STRING:
            return textOf(label, text, true);
        case RAD_TYPE_IPADDR:
            return addressOf(label, text);
        case RAD_TYPE_DATE:
            return bytesOf(static_cast<uint32_t>(numberUpTo(kIntegerMax, label, text)));
        default:
            return integerOf(label, attribute, text);
    }
}

// Packets have no gigawords: their number stays at the largest that can be said.
void addCounter(PacketMaker &packet, const Field &field, uint64_t number) {
    if (field.gigawords == 0) {
        packet.add(field.number, bytesOf(static_cast<uint32_t>(std::min(number, kIntegerMax))));
        return;
    }
    packet.add(field.number, bytesOf(static_cast<uint32_t>(number)));
    if (number > kIntegerMax) {
        packet.add(field.gigawords, bytesOf(static_cast<uint32_t>(number >> 32U)));
    }
}

void addField(PacketMaker &packet, const Field &field, const std::string &text) {
    const RadDictAttr *attribute = radDictGetAttr(field.number);
    switch (field.form) {
        case Form::kCounter:
            return addCounter(packet, field,
                              numberUpTo(std::numeric_limits<uint64_t>::max(), field.option, text));
        case Form::kOfDictionary:
            packet.add(field.number, valueOf(field.option, *attribute, text));
            break;
        default:
            packet.add(field.number, textOf(field.option, text, field.form == Form::kTextOrBytes));
    }
}

// Of an attribute that cannot be given by its name; "" for none.
std::string whyBarred(int number) {
    const auto *const field =
        std::find_if(kFields.begin(), kFields.end(),
                     [number](const Field &row) { return row.number == number; });
    if (field != kFields.end()) {
        return std::string("has an option of its own, ") + field->option;
    }
    const auto *const barred =
        std::find_if(kBarred.begin(), kBarred.end(),
                     [number](const Barred &row) { return row.number == number; });
    return barred == kBarred.end() ? "" : barred->reason;
}

// An attribute of a vendor, by its name; number 0 for none. Those that only the dictionary knows are text.
VendorAttribute findOfVendors(const std::string &name) {
    const auto *const known =
        std::find_if(kVendorAttributes.begin(), kVendorAttributes.end(),
                     [&name](const VendorAttribute &row) { return name == row.name; });
    if (known != kVendorAttributes.end()) {
        return *known;
    }
    for (const RadDictValue *vendor : allVendors()) {
        for (const RadDictValue *attribute : valuesOf(vendor->valueName)) {
            if (name == attribute->valueName) {
                return {static_cast<uint32_t>(vendor->value),
                        static_cast<uint8_t>(attribute->value), attribute->valueName, Kind::kText};
            }
        }
    }
    return {};
}

// Vendor-Specific (RFC 2865 section 5.26).
Bytes valueOfVendors(const std::string &name, const VendorAttribute &attribute,
                     const std::string &text) {
    constexpr size_t kHeader = 2;
    const Bytes data = attribute.kind == Kind::kNumber
                           ? bytesOf(static_cast<uint32_t>(numberUpTo(kIntegerMax, name, text)))
                       : attribute.kind == Kind::kAddress ? addressOf(name, text)
                                                          : textOf(name, text, true);
    Bytes value = bytesOf(attribute.vendor);
    value.push_back(attribute.number);
    value.push_back(static_cast<uint8_t>(data.size() + kHeader));
    value.insert(value.end(), data.begin(), data.end());
    if (value.size() > RAD_VALUE_MAX) {
        refuse(name, "takes 1 to " + std::to_string(RAD_VALUE_MAX - sizeof(uint32_t) - kHeader) +
                         " bytes");
    }
    return value;
}

void addOther(PacketMaker &packet, const std::string &text) {
    const size_t sign = text.find('=');
    if (sign == std::string::npos) {
        refuse("--attribute", "'" + text + "' is not NAME=VALUE");
    }
    const std::string name = text.substr(0, sign);
    const std::string value = text.substr(sign + 1);
    if (const RadDictAttr *attribute = findAttribute(name)) {
        if (const std::string reason = whyBarred(attribute->attrNum); !reason.empty()) {
            refuse("--attribute", name + " " + reason);
        }
        packet.add(attribute->attrNum, valueOf(name, *attribute, value));
    } else if (const VendorAttribute ofVendor = findOfVendors(name); ofVendor.number != 0) {
        packet.add(RAD_ATTR_VENDOR_SPECIFIC, valueOfVendors(name, ofVendor, value));
    } else {
        throw Failure("the dictionary has no attribute '" + name + "'", kNotFound);
    }
}

}  // namespace

void completeDictionary() {
    for (const char *line : kDefinitions) {
        const std::string_view words = line;
        const std::string number(words.substr(words.find(' ') + 1));
        if (!radDictGetAttr(std::stoi(number)) && radDictAddAttr(line) != 0) {
            throw Failure("out of memory");
        }
    }
    const std::string types = radDictGetAttr(RAD_ATTR_ACCT_STATUS_TYPE)->name;
    for (const StatusType &status : kStatusTypes) {
        const auto value = static_cast<int32_t>(status.value);
        const std::string line = types + " " + status.name + " " + std::to_string(value);
        if (!radDictGetVal(value, types.c_str()) && radDictAddValue(line.c_str()) != 0) {
            throw Failure("out of memory");
        }
    }
}

Record makeRecord(const StatusType &status, const Given &given) {
    Record record{.made = time(nullptr), .session = given.session, .status = status.value};
    PacketMaker packet(RAD_CODE_ACCOUNTING_REQUEST);
    packet.add(RAD_ATTR_ACCT_STATUS_TYPE, bytesOf(status.value));
    packet.add(RAD_ATTR_ACCT_SESSION_ID, textOf("--session-id", given.session, false));
    packet.add(RAD_ATTR_EVENT_TIMESTAMP, bytesOf(static_cast<uint32_t>(record.made)));
    for (size_t i = 0; i < kFields.size(); ++i) {
        for (const std::string &text : given.values[i]) {
            addField(packet, kFields[i], text);
        }
    }
    for (const std::string &text : given.attributes) {
        addOther(packet, text);
    }
    record.packet = packet.bytes();
    // NAS-IP-Address and Acct-Delay-Time join it.
    constexpr size_t kSizeMax = RAD_PACKET_MAX - 2 * (2 + sizeof(uint32_t));
    if (record.packet.size() > kSizeMax) {
        throw Failure("the record has more attributes than one packet holds", kRefused);
    }
    return record;
}

std::string newSession() {
    Bytes bytes(8);
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
        throw Failure("no random bytes");
    }
    return asHex(bytes);
}

std::string statusOf(const Record &record) {
    const auto *const found =
        std::find_if(kStatusTypes.begin(), kStatusTypes.end(),
                     [&record](const StatusType &row) { return row.value == record.status; });
    return found == kStatusTypes.end() ? std::to_string(record.status) : found->name;
}

std::string userOf(const Record &record) {
    const PacketView packet(record.packet);
    const RawAttribute *user = packet.find(RAD_ATTR_USER_NAME);
    return user ? std::string(user->value.begin(), user->value.end()) : "";
}

}  // namespace lanyardctl
