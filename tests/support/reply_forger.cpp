#include "tests/support/reply_forger.h"

#include <cstddef>
#include <utility>

namespace lanyard::test {
namespace {

constexpr size_t kHeader = 20;
constexpr size_t kIdentifier = 1;
constexpr size_t kAuthenticator = 4;
constexpr uint8_t kAccessAccept = 2;
constexpr uint8_t kFiller = 0xa5;

}  // namespace

Datagram forgedAccept(uint8_t identifier) {
    Datagram accept(kHeader, kFiller);
    accept[0] = kAccessAccept;
    accept[kIdentifier] = identifier;
    accept[2] = 0;
    accept[3] = kHeader;
    return accept;
}

std::optional<Datagram> ReplyForger::forge(Forgery forgery, std::span<const uint8_t> reply,
                                           double share) {
    if (share < 1 && std::uniform_real_distribution<>(0, 1)(generator_) >= share) {
        forgery = Forgery::kNone;
    }
    if (forgery == Forgery::kJunk) {
        return Datagram(7, kFiller);
    }
    if (reply.size() < kHeader) {
        return std::nullopt;
    }
    const Datagram earlier = std::exchange(earlier_, Datagram(reply.begin(), reply.end()));
    if (forgery == Forgery::kAccept) {
        return forgedAccept(reply[kIdentifier]);
    }
    if (forgery == Forgery::kDigest) {
        Datagram forged(reply.begin(), reply.end());
        forged[kAuthenticator] ^= 1;
        return forged;
    }
    if (forgery == Forgery::kForeign && !earlier.empty()) {
        Datagram forged = earlier;
        forged[kIdentifier] = reply[kIdentifier];
        return forged;
    }
    return std::nullopt;
}

}  // namespace lanyard::test
