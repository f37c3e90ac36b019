// RADIUS packets as bytes (RFC 2865 section 3): taking them apart, proving where they come from, and
// making the small ones that ask a server how it is.
#ifndef LANYARDCTL_RADIUS_PACKET_H
#define LANYARDCTL_RADIUS_PACKET_H

#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace lanyardctl {

using Bytes = std::vector<uint8_t>;
using View = std::span<const uint8_t>;

struct RawAttribute {
    uint8_t number = 0;
    View value = {};
};

// What is wrong with bytes that are no packet.
class Malformed : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A packet whose length is right and whose attributes fill it. The bytes are the caller's.
class PacketView {
  public:
    // Takes as many bytes as the length field says; more may follow (padding). Throws Malformed.
    explicit PacketView(View bytes);

    [[nodiscard]] View bytes() const { return bytes_; }
    [[nodiscard]] uint8_t code() const { return bytes_[0]; }
    [[nodiscard]] uint8_t identifier() const { return bytes_[1]; }
    [[nodiscard]] View authenticator() const;
    [[nodiscard]] const std::vector<RawAttribute> &attributes() const { return attributes_; }
    // Null when there is none.
    [[nodiscard]] const RawAttribute *find(int number) const;
    [[nodiscard]] bool isReply() const;

  private:
    View bytes_;
    std::vector<RawAttribute> attributes_;
};

std::string codeName(int code);

// Whether a packet carries a proof, and whether the secret explains it.
enum class Proof { kNone, kRight, kWrong };

// The response authenticator of a reply (RFC 2865 section 3).
Proof responseProof(const PacketView &reply, View requestAuthenticator, std::string_view secret);

// The authenticator of an Accounting-Request (RFC 2866 section 3) and of what a server asks for (RFC 5176 section 2.3);
// kNone where it is random, and for replies.
Proof accountingProof(const PacketView &request, std::string_view secret);

// Message-Authenticator (RFC 3579 section 3.2). `requestAuthenticator` matters for replies alone.
Proof messageProof(const PacketView &packet, View requestAuthenticator, std::string_view secret);

// A request, made attribute by attribute. Its authenticator and identifier are random.
class PacketMaker {
  public:
    explicit PacketMaker(uint8_t code);
    // A value of at most 253 bytes.
    PacketMaker &add(int number, View value);
    PacketMaker &add(int number, std::string_view text);
    // User-Password, of at most 16 characters.
    PacketMaker &addPassword(std::string_view password, const std::string &secret);
    PacketMaker &sign(std::string_view secret);
    [[nodiscard]] const Bytes &bytes() const { return bytes_; }

  private:
    Bytes bytes_;
};

}  // namespace lanyardctl

#endif
