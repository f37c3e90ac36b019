// The key of an HMAC-MD5, digested beforehand.
#ifndef LANYARD_CLIENT_HMAC_KEY_H
#define LANYARD_CLIENT_HMAC_KEY_H

#include <array>
#include <cstdint>
#include <openssl/crypto.h>
#include <openssl/md5.h>
#include <span>

namespace lanyard {

// The states of MD5 after the inner and after the outer block of the key: half of the blocks that a
// short message's HMAC takes (RFC 2104 section 4).
class HmacKey {
  public:
    explicit HmacKey(std::span<const uint8_t> key);

    // The key of a server's shared secret. Those of the last secrets are kept until a server is deleted.
    explicit HmacKey(const char *secret);

    HmacKey(const HmacKey &) = delete;
    HmacKey &operator=(const HmacKey &) = delete;
    ~HmacKey() { OPENSSL_cleanse(&states_, sizeof(states_)); }

    // Writes the sixteen bytes of the HMAC.
    void digest(std::span<const uint8_t> data, uint8_t *out) const;

    using State = std::array<MD5_LONG, 4>;
    struct States {
        State inner;
        State outer;
    };

  private:
    States states_;
};

}  // namespace lanyard

#endif
