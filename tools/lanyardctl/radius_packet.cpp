#include "radius_packet.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <sys/random.h>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/engine.h>

namespace lanyardctl {

namespace {

constexpr size_t kAttributeHeader = 2;
constexpr size_t kAuthenticatorAt = 4;

struct CodeName {
    int code;
    const char *name;
};
constexpr auto kCodeNames = std::to_array<CodeName>({
    {RAD_CODE_ACCESS_REQUEST, "Access-Request"},
    {RAD_CODE_ACCESS_ACCEPT, "Access-Accept"},
    {RAD_CODE_ACCESS_REJECT, "Access-Reject"},
    {RAD_CODE_ACCOUNTING_REQUEST, "Accounting-Request"},
    {RAD_CODE_ACCOUNTING_RESPONSE, "Accounting-Response"},
    {RAD_CODE_ACCESS_CHALLENGE, "Access-Challenge"},
    {RAD_CODE_STATUS_SERVER, "Status-Server"},
    {40, "Disconnect-Request"},
    {41, "Disconnect-ACK"},
    {42, "Disconnect-NAK"},
    {43, "CoA-Request"},
    {44, "CoA-ACK"},
    {45, "CoA-NAK"},
});

// An authenticator that is no digest of the packet it stands in.
bool isRandom(int code) {
    return code == RAD_CODE_ACCESS_REQUEST || code == RAD_CODE_STATUS_SERVER;
}

void putAuthenticator(Bytes &packet, View authenticator) {
    std::copy_n(authenticator.begin(), RAD_DIGEST_SIZE, packet.begin() + kAuthenticatorAt);
}

Proof compare(View expected, View found) {
    return std::equal(expected.begin(), expected.end(), found.begin(), found.end()) ? Proof::kRight
                                                                                    : Proof::kWrong;
}

// MD5 over the packet with that authenticator in its header, and the secret.
Proof digestProof(const PacketView &packet, View authenticator, std::string_view secret) {
    Bytes text(packet.bytes().begin(), packet.bytes().end());
    putAuthenticator(text, authenticator);
    text.insert(text.end(), secret.begin(), secret.end());
    std::array<uint8_t, RAD_DIGEST_SIZE> digest{};
    rc_md5_calc(digest.data(), text.data(), static_cast<uint32_t>(text.size()));
    explicit_bzero(text.data(), text.size());
    return compare(digest, packet.authenticator());
}

std::array<uint8_t, RAD_DIGEST_SIZE> messageDigest(View packet, std::string_view secret) {
    std::array<uint8_t, RAD_DIGEST_SIZE> digest{};
    radHmacMd5Calc(digest.data(), packet.data(), static_cast<uint32_t>(packet.size()),
                   reinterpret_cast<const uint8_t *>(secret.data()),
                   static_cast<uint32_t>(secret.size()));
    return digest;
}

constexpr std::array<uint8_t, RAD_DIGEST_SIZE> kZeros{};

}  // namespace

PacketView::PacketView(View bytes) {
    if (bytes.size() < RAD_HEADER_SIZE) {
        throw Malformed("it has " + std::to_string(bytes.size()) + " bytes, and a header has 20");
    }
    const size_t length = size_t{bytes[2]} << 8U | bytes[3];
    if (length < RAD_HEADER_SIZE || length > bytes.size()) {
        throw Malformed("its length field says " + std::to_string(length) + ", and there are " +
                        std::to_string(bytes.size()) + " bytes");
    }
    bytes_ = bytes.first(length);
    for (View rest = bytes_.subspan(RAD_HEADER_SIZE); !rest.empty();) {
        if (rest.size() < kAttributeHeader || rest[1] < kAttributeHeader || rest[1] > rest.size()) {
            throw Malformed("attribute " + std::to_string(rest[0]) + " at byte " +
                            std::to_string(length - rest.size()) + " does not fit into the packet");
        }
        attributes_.push_back({rest[0], rest.first(rest[1]).subspan(kAttributeHeader)});
        rest = rest.subspan(rest[1]);
    }
}

View PacketView::authenticator() const {
    return bytes_.subspan(kAuthenticatorAt, RAD_DIGEST_SIZE);
}

const RawAttribute *PacketView::find(int number) const {
    const auto found = std::find_if(
        attributes_.begin(), attributes_.end(),
        [number](const RawAttribute &attribute) { return attribute.number == number; });
    return found == attributes_.end() ? nullptr : &*found;
}

bool PacketView::isReply() const {
    constexpr std::array kReplies = {2, 3, 5, 11, 41, 42, 44, 45};
    return std::find(kReplies.begin(), kReplies.end(), code()) != kReplies.end();
}

std::string codeName(int code) {
    const auto *const found =
        std::find_if(kCodeNames.begin(), kCodeNames.end(),
                     [code](const CodeName &row) { return row.code == code; });
    return found == kCodeNames.end() ? "code " + std::to_string(code) : found->name;
}

Proof responseProof(const PacketView &reply, View requestAuthenticator, std::string_view secret) {
    return digestProof(reply, requestAuthenticator, secret);
}

Proof accountingProof(const PacketView &request, std::string_view secret) {
    return request.isReply() || isRandom(request.code()) ? Proof::kNone
                                                         : digestProof(request, kZeros, secret);
}

Proof messageProof(const PacketView &packet, View requestAuthenticator, std::string_view secret) {
    const RawAttribute *attribute = packet.find(RAD_ATTR_MESSAGE_AUTHENTICATOR);
    if (!attribute) {
        return Proof::kNone;
    }
    if (attribute->value.size() != RAD_DIGEST_SIZE) {
        return Proof::kWrong;
    }
    Bytes text(packet.bytes().begin(), packet.bytes().end());
    if (packet.isReply()) {
        putAuthenticator(text, requestAuthenticator);
    } else if (!isRandom(packet.code())) {
        putAuthenticator(text, kZeros);
    }
    std::copy(kZeros.begin(), kZeros.end(),
              text.begin() + (attribute->value.data() - packet.bytes().data()));
    return compare(messageDigest(text, secret), attribute->value);
}

PacketMaker::PacketMaker(uint8_t code) : bytes_(RAD_HEADER_SIZE) {
    if (getrandom(bytes_.data(), bytes_.size(), 0) != static_cast<ssize_t>(bytes_.size())) {
        throw std::runtime_error("no random bytes");
    }
    bytes_[0] = code;
    bytes_[2] = 0;
    bytes_[3] = RAD_HEADER_SIZE;
}

PacketMaker &PacketMaker::add(int number, View value) {
    bytes_.push_back(static_cast<uint8_t>(number));
    bytes_.push_back(static_cast<uint8_t>(value.size() + kAttributeHeader));
    bytes_.insert(bytes_.end(), value.begin(), value.end());
    bytes_[2] = static_cast<uint8_t>(bytes_.size() >> 8U);
    bytes_[3] = static_cast<uint8_t>(bytes_.size());
    return *this;
}

PacketMaker &PacketMaker::add(int number, std::string_view text) {
    return add(number, View(reinterpret_cast<const uint8_t *>(text.data()), text.size()));
}

PacketMaker &PacketMaker::addPassword(std::string_view password, const std::string &secret) {
    std::array<uint8_t, RAD_DIGEST_SIZE> clear{};
    std::array<uint8_t, RAD_DIGEST_SIZE> hidden{};
    std::copy_n(password.begin(), std::min(password.size(), clear.size()), clear.begin());
    if (radMd5Crypt(secret.c_str(), bytes_.data() + kAuthenticatorAt, nullptr, 0, clear.data(),
                    RAD_DIGEST_SIZE, hidden.data(), 0) != 0) {
        throw std::runtime_error("out of memory");
    }
    return add(RAD_ATTR_USER_PASSWORD, hidden);
}

PacketMaker &PacketMaker::sign(std::string_view secret) {
    add(RAD_ATTR_MESSAGE_AUTHENTICATOR, kZeros);
    const auto digest = messageDigest(bytes_, secret);
    std::copy(digest.begin(), digest.end(), bytes_.end() - RAD_DIGEST_SIZE);
    return *this;
}

}  // namespace lanyardctl
