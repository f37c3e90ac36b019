#include "tests/support/radius_wire.h"

#include <algorithm>
#include <arpa/inet.h>
#include <memory>
#include <openssl/evp.h>
#include <ostream>
#include <stdexcept>

namespace lanyard::test {
namespace {

constexpr uint8_t kAccountingRequest = 4;
constexpr uint8_t kUserPassword = 2;
constexpr uint8_t kVendorSpecific = 26;
constexpr uint8_t kMessageAuthenticator = 80;
constexpr size_t kBlockSize = 16;
constexpr Digest kZeros{};

ByteView view(std::string_view text) {
    return {reinterpret_cast<const uint8_t *>(text.data()), text.size()};
}

std::array<uint8_t, 4> bigEndian(uint32_t number) {
    return {static_cast<uint8_t>(number >> 24), static_cast<uint8_t>(number >> 16),
            static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)};
}

ByteView authenticatorOf(ByteView packet) {
    if (packet.size() < kHeaderSize) {
        throw std::length_error("shorter than a RADIUS header");
    }
    return packet.subspan(4, 16);
}

size_t lengthField(ByteView packet) {
    return static_cast<size_t>(packet[2] << 8 | packet[3]);
}

void setLengthField(Bytes &packet, uint16_t length) {
    packet[2] = static_cast<uint8_t>(length >> 8);
    packet[3] = static_cast<uint8_t>(length);
}

void put(Bytes &packet, size_t offset, ByteView bytes) {
    std::copy(bytes.begin(), bytes.end(), packet.begin() + static_cast<ptrdiff_t>(offset));
}

struct EvpContextDeleter {
    void operator()(EVP_MD_CTX *context) const { EVP_MD_CTX_free(context); }
};

// Each block of the chain is hidden under MD5 of the secret and the hidden block before it.
Bytes hideBlocks(ByteView plain, std::string_view secret, ByteView seed) {
    Bytes hidden;
    Bytes previous(seed.begin(), seed.end());
    for (size_t offset = 0; offset < plain.size(); offset += kBlockSize) {
        const Digest mask = md5({view(secret), previous});
        previous.assign(kBlockSize, 0);
        std::transform(mask.begin(), mask.end(), plain.begin() + static_cast<ptrdiff_t>(offset),
                       previous.begin(),
                       [](uint8_t a, uint8_t b) { return static_cast<uint8_t>(a ^ b); });
        hidden.insert(hidden.end(), previous.begin(), previous.end());
    }
    return hidden;
}

// Message-Authenticator over a packet whose authenticator field and attribute value are taken as
// given.
Digest messageAuthenticator(ByteView packet, size_t valueOffset, ByteView authenticator,
                            std::string_view secret) {
    return hmacMd5(secret, {packet.first(4), authenticator,
                            packet.subspan(kHeaderSize, valueOffset - kHeaderSize), kZeros,
                            packet.subspan(valueOffset + kZeros.size())});
}

// The bytes that the response authenticator of a reply covers: as many as its length field says.
ByteView covered(ByteView reply) {
    return reply.first(std::clamp(lengthField(reply), kHeaderSize, reply.size()));
}

Digest responseAuthenticator(ByteView reply, ByteView request, std::string_view secret) {
    return md5({reply.first(4), authenticatorOf(request), covered(reply).subspan(kHeaderSize),
                view(secret)});
}

}  // namespace

Digest md5(std::initializer_list<ByteView> parts) {
    const std::unique_ptr<EVP_MD_CTX, EvpContextDeleter> context(EVP_MD_CTX_new());
    bool succeeded = context && EVP_DigestInit_ex(context.get(), EVP_md5(), nullptr) == 1;
    for (const ByteView part : parts) {
        succeeded = succeeded && EVP_DigestUpdate(context.get(), part.data(), part.size()) == 1;
    }
    Digest digest{};
    if (!succeeded || EVP_DigestFinal_ex(context.get(), digest.data(), nullptr) != 1) {
        throw std::runtime_error("libcrypto has no MD5");
    }
    return digest;
}

// RFC 2104, with the plain digest above.
Digest hmacMd5(std::string_view key, std::initializer_list<ByteView> parts) {
    std::array<uint8_t, 64> inner{};
    if (key.size() > inner.size()) {
        const Digest digest = md5({view(key)});
        std::copy(digest.begin(), digest.end(), inner.begin());
    } else {
        std::copy(key.begin(), key.end(), inner.begin());
    }
    std::array<uint8_t, 64> outer = inner;
    for (size_t i = 0; i < inner.size(); ++i) {
        inner[i] ^= 0x36;
        outer[i] ^= 0x5c;
    }
    return md5({outer, md5({inner, concatenate(parts)})});
}

void PrintTo(const Attribute &attribute, std::ostream *stream) {
    *stream << "{type " << int{attribute.type} << ", " << toHex(attribute.value) << '}';
}

Attributes &Attributes::add(uint8_t type, ByteView value) {
    if (value.size() > 253) {
        throw std::length_error("attribute value of " + std::to_string(value.size()) + " bytes");
    }
    bytes_.push_back(type);
    bytes_.push_back(static_cast<uint8_t>(value.size() + 2));
    return addRaw(value);
}

Attributes &Attributes::addText(uint8_t type, std::string_view text) {
    return add(type, view(text));
}

Attributes &Attributes::addInteger(uint8_t type, uint32_t number) {
    return add(type, bigEndian(number));
}

Attributes &Attributes::addAddress(uint8_t type, const std::string &dotted) {
    std::array<uint8_t, 4> address{};
    if (inet_pton(AF_INET, dotted.c_str(), address.data()) != 1) {
        throw std::invalid_argument("not an IPv4 address: " + dotted);
    }
    return add(type, address);
}

Attributes &Attributes::addVendor(uint32_t vendor, uint8_t type, ByteView data) {
    const std::array<uint8_t, 2> header = {type, static_cast<uint8_t>(data.size() + 2)};
    return add(kVendorSpecific, concatenate({bigEndian(vendor), header, data}));
}

Attributes &Attributes::addMessageAuthenticator() {
    signatureOffset_ = bytes_.size() + 2;
    return add(kMessageAuthenticator, kZeros);
}

Attributes &Attributes::addRaw(ByteView bytes) {
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    return *this;
}

Bytes makePacket(uint8_t code, uint8_t identifier, ByteView authenticator,
                 const Attributes &attributes) {
    const std::array<uint8_t, 4> start = {code, identifier, 0, 0};
    Bytes packet = concatenate({start, authenticator, attributes.bytes()});
    if (authenticator.size() != kZeros.size() || packet.size() > UINT16_MAX) {
        throw std::length_error("no authenticator of 16 bytes, or too many attributes");
    }
    setLengthField(packet, static_cast<uint16_t>(packet.size()));
    return packet;
}

Bytes makeRequest(uint8_t identifier, ByteView authenticator, std::string_view secret,
                  const Attributes &attributes) {
    Bytes request = makePacket(1, identifier, authenticator, attributes);
    if (const auto offset = attributes.messageAuthenticatorOffset()) {
        const size_t position = kHeaderSize + *offset;
        put(request, position, messageAuthenticator(request, position, authenticator, secret));
    }
    return request;
}

Bytes makeReply(uint8_t code, ByteView request, std::string_view secret,
                const Attributes &attributes, const ReplyFaults &faults) {
    const ByteView requestAuthenticator = authenticatorOf(request);
    const auto identifier = static_cast<uint8_t>(request[1] + (faults.wrongIdentifier ? 1 : 0));
    Bytes reply = makePacket(code, identifier, requestAuthenticator, attributes);
    if (faults.lengthField) {
        setLengthField(reply, *faults.lengthField);
    }
    if (const auto offset = attributes.messageAuthenticatorOffset()) {
        const size_t position = kHeaderSize + *offset;
        put(reply, position, messageAuthenticator(reply, position, requestAuthenticator, secret));
        reply[position] ^= faults.wrongMessageAuthenticator ? 1 : 0;
    } else if (faults.wrongMessageAuthenticator) {
        throw std::logic_error("no Message-Authenticator that could be wrong");
    }
    put(reply, 4, responseAuthenticator(reply, request, secret));
    reply[4] ^= faults.wrongAuthenticator ? 1 : 0;
    return reply;
}

bool replyIsValid(ByteView reply, ByteView request, std::string_view secret) {
    const ByteView authenticator = authenticatorOf(reply);
    const Digest expected = responseAuthenticator(reply, request, secret);
    return std::equal(authenticator.begin(), authenticator.end(), expected.begin());
}

std::vector<Attribute> parseAttributes(ByteView packet) {
    std::vector<Attribute> attributes;
    if (packet.size() < kHeaderSize || lengthField(packet) < kHeaderSize ||
        lengthField(packet) > packet.size()) {
        ADD_FAILURE() << "malformed packet: " << toHex(packet);
        return attributes;
    }
    ByteView rest = packet.first(lengthField(packet)).subspan(kHeaderSize);
    while (!rest.empty()) {
        if (rest.size() < 2 || rest[1] < 2 || rest[1] > rest.size()) {
            ADD_FAILURE() << "malformed attribute " << toHex(rest) << " in packet "
                          << toHex(packet);
            break;
        }
        const ByteView value = rest.first(rest[1]).subspan(2);
        attributes.push_back({rest[0], {value.begin(), value.end()}});
        rest = rest.subspan(rest[1]);
    }
    return attributes;
}

std::vector<Bytes> attributeValues(ByteView packet, uint8_t type) {
    std::vector<Bytes> values;
    for (Attribute &attribute : parseAttributes(packet)) {
        if (attribute.type == type) {
            values.push_back(std::move(attribute.value));
        }
    }
    return values;
}

Bytes attributeValue(ByteView packet, uint8_t type) {
    std::vector<Bytes> values = attributeValues(packet, type);
    if (values.size() != 1) {
        ADD_FAILURE() << values.size() << " attributes of type " << int{type} << " in packet "
                      << toHex(packet);
        return {};
    }
    return std::move(values.front());
}

std::vector<int> attributeTypes(ByteView packet) {
    std::vector<int> types;
    for (const Attribute &attribute : parseAttributes(packet)) {
        types.push_back(attribute.type);
    }
    return types;
}

Bytes vendorValue(ByteView packet, uint32_t vendor, uint8_t type) {
    const Bytes start = concatenate({bigEndian(vendor), ByteView(&type, 1)});
    std::vector<Bytes> found;
    for (const Bytes &value : attributeValues(packet, kVendorSpecific)) {
        if (value.size() >= 6 && std::equal(start.begin(), start.end(), value.begin()) &&
            value[5] == value.size() - 4) {
            found.emplace_back(value.begin() + 6, value.end());
        }
    }
    if (found.size() != 1) {
        ADD_FAILURE() << found.size() << " attributes of vendor " << vendor << ", type "
                      << int{type} << " in packet " << toHex(packet);
        return {};
    }
    return std::move(found.front());
}

Bytes revealPaddedPassword(ByteView request, std::string_view secret) {
    const Bytes hidden = attributeValue(request, kUserPassword);
    if (hidden.empty() || hidden.size() % kBlockSize != 0) {
        ADD_FAILURE() << "User-Password of " << hidden.size() << " bytes";
        return {};
    }
    Bytes plain;
    ByteView previous = authenticatorOf(request);
    for (size_t offset = 0; offset < hidden.size(); offset += kBlockSize) {
        const Digest mask = md5({view(secret), previous});
        previous = ByteView(hidden).subspan(offset, kBlockSize);
        std::transform(mask.begin(), mask.end(), previous.begin(), std::back_inserter(plain),
                       [](uint8_t a, uint8_t b) { return static_cast<uint8_t>(a ^ b); });
    }
    return plain;
}

std::string revealPassword(ByteView request, std::string_view secret) {
    std::string password = toText(revealPaddedPassword(request, secret));
    password.erase(password.find_last_not_of('\0') + 1);
    return password;
}

Bytes hidePassword(std::string_view password, ByteView authenticator, std::string_view secret) {
    Bytes padded = fromText(password);
    padded.resize(std::max(kBlockSize, (padded.size() + kBlockSize - 1) / kBlockSize * kBlockSize));
    return hideBlocks(padded, secret, authenticator);
}

bool messageAuthenticatorIsValid(ByteView request, std::string_view secret) {
    std::optional<size_t> position;
    size_t offset = kHeaderSize;
    for (const Attribute &attribute : parseAttributes(request)) {
        if (attribute.type == kMessageAuthenticator) {
            if (position || attribute.value.size() != kZeros.size()) {
                return false;
            }
            position = offset + 2;
        }
        offset += attribute.value.size() + 2;
    }
    if (!position) {
        return false;
    }
    const ByteView packet = request.first(lengthField(request));
    const ByteView authenticator =
        request[0] == kAccountingRequest ? ByteView(kZeros) : authenticatorOf(request);
    const Digest expected = messageAuthenticator(packet, *position, authenticator, secret);
    return std::equal(expected.begin(), expected.end(), packet.subspan(*position).begin());
}

bool accountingAuthenticatorIsValid(ByteView request, std::string_view secret) {
    const ByteView authenticator = authenticatorOf(request);
    const Digest expected =
        md5({request.first(4), kZeros, covered(request).subspan(kHeaderSize), view(secret)});
    return std::equal(expected.begin(), expected.end(), authenticator.begin());
}

Bytes encryptMppeKey(ByteView key, std::string_view secret, ByteView requestAuthenticator,
                     uint16_t salt) {
    const std::array<uint8_t, 2> saltBytes = {static_cast<uint8_t>(salt >> 8),
                                              static_cast<uint8_t>(salt)};
    const auto keyLength = static_cast<uint8_t>(key.size());
    Bytes plain = concatenate({ByteView(&keyLength, 1), key});
    plain.resize((plain.size() + kBlockSize - 1) / kBlockSize * kBlockSize);
    return concatenate(
        {saltBytes, hideBlocks(plain, secret, concatenate({requestAuthenticator, saltBytes}))});
}

}  // namespace lanyard::test
