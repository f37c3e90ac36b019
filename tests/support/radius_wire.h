// RADIUS packets, written and read by the tests' own hand: digests come from libcrypto, nothing
// from the library under test.
//
//     const Attributes attributes = Attributes().addText(1, "nemo").addVendor(311, 16, key);
//     const Bytes request = makeRequest(7, authenticator, "secret", attributes);
//     const Bytes reply = makeReply(2, request, "secret", attributes);
//     EXPECT_EQ("arctangent", revealPassword(request, "secret"));
//     EXPECT_BYTES_EQ(fromText("nemo"), attributeValue(request, 1));
//
// A packet is a ByteView: received requests of a ScriptedServer are taken as well.
#ifndef LANYARD_TESTS_SUPPORT_RADIUS_WIRE_H
#define LANYARD_TESTS_SUPPORT_RADIUS_WIRE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/bytes.h"

namespace lanyard::test {

inline constexpr size_t kHeaderSize = 20;

using Digest = std::array<uint8_t, 16>;

Digest md5(std::initializer_list<ByteView> parts);
Digest hmacMd5(std::string_view key, std::initializer_list<ByteView> parts);

struct Attribute {
    uint8_t type = 0;
    Bytes value;

    bool operator==(const Attribute &) const = default;
};

void PrintTo(const Attribute &attribute, std::ostream *stream);

// Builds the attributes of a packet.
class Attributes {
  public:
    // A value of more than 253 bytes throws std::length_error.
    Attributes &add(uint8_t type, ByteView value);
    Attributes &addText(uint8_t type, std::string_view text);
    Attributes &addInteger(uint8_t type, uint32_t number);
    // A dotted IPv4 address.
    Attributes &addAddress(uint8_t type, const std::string &dotted);
    // Vendor-Specific with one sub-attribute: vendor id, type, length, data.
    Attributes &addVendor(uint32_t vendor, uint8_t type, ByteView data);
    // A Message-Authenticator, which makePacket() leaves zero; makeRequest() and makeReply() sign.
    Attributes &addMessageAuthenticator();
    // Bytes as they are, however malformed.
    Attributes &addRaw(ByteView bytes);

    [[nodiscard]] const Bytes &bytes() const { return bytes_; }
    // Where the value of addMessageAuthenticator() begins.
    [[nodiscard]] std::optional<size_t> messageAuthenticatorOffset() const {
        return signatureOffset_;
    }

  private:
    Bytes bytes_;
    std::optional<size_t> signatureOffset_;
};

// Header and attributes; the length field counts all of them.
Bytes makePacket(uint8_t code, uint8_t identifier, ByteView authenticator,
                 const Attributes &attributes = {});

// An Access-Request with its Message-Authenticator signed.
Bytes makeRequest(uint8_t identifier, ByteView authenticator, std::string_view secret,
                  const Attributes &attributes);

// What is wrong with a reply; all else about it is right. The response authenticator covers the
// other faults, so that each fault is the one and only reason to refuse the reply.
struct ReplyFaults {
    bool wrongIdentifier = false;            // the request's and one
    bool wrongMessageAuthenticator = false;  // one bit of it, with an authenticator that fits
    bool wrongAuthenticator = false;         // one bit of it
    // In place of the true length; the response authenticator covers that many bytes, or all when
    // there are fewer.
    std::optional<uint16_t> lengthField = {};
};

// The reply to a request, with a correct response authenticator (RFC 2865 section 3) and, where
// addMessageAuthenticator() asks for one, a correct Message-Authenticator (RFC 3579 section 3.2).
Bytes makeReply(uint8_t code, ByteView request, std::string_view secret,
                const Attributes &attributes = {}, const ReplyFaults &faults = {});

// Whether the response authenticator of a reply is right.
bool replyIsValid(ByteView reply, ByteView request, std::string_view secret);

// The attributes of a packet up to the end that its length field gives. A malformed packet fails
// the test and returns the attributes before the malformed one.
std::vector<Attribute> parseAttributes(ByteView packet);

// The values of all attributes of that type, and the one value: when there is none or more than
// one, the test fails.
std::vector<Bytes> attributeValues(ByteView packet, uint8_t type);
Bytes attributeValue(ByteView packet, uint8_t type);
// The attribute types in order.
std::vector<int> attributeTypes(ByteView packet);
// The data of the one Vendor-Specific attribute of that vendor and type.
Bytes vendorValue(ByteView packet, uint32_t vendor, uint8_t type);

// User-Password of a request in clear text (RFC 2865 section 5.2), with its padding or without.
Bytes revealPaddedPassword(ByteView request, std::string_view secret);
std::string revealPassword(ByteView request, std::string_view secret);

// The value of User-Password for a password; the counterpart of revealPaddedPassword().
Bytes hidePassword(std::string_view password, ByteView authenticator, std::string_view secret);

// Message-Authenticator of a request; false as well when there is not exactly one of 16 bytes.
bool messageAuthenticatorIsValid(ByteView request, std::string_view secret);

// Request authenticator of an Accounting-Request (RFC 2866 section 3).
bool accountingAuthenticatorIsValid(ByteView request, std::string_view secret);

// The data of MS-MPPE-Send-Key and MS-MPPE-Recv-Key (RFC 2548 section 2.4.2): salt, and the key
// encrypted.
Bytes encryptMppeKey(ByteView key, std::string_view secret, ByteView requestAuthenticator,
                     uint16_t salt = 0x8001);

}  // namespace lanyard::test

#endif
