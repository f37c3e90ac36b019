// The digests of RADIUS with a secret that stays the same (RFC 2865 section 3, RFC 3579 section 3.2),
// straight from libcrypto: what a program without the library would do.
#ifndef LANYARD_BENCH_SHARED_SECRET_H
#define LANYARD_BENCH_SHARED_SECRET_H

#include <algorithm>
#include <array>
#include <cstdint>
#include <initializer_list>
#include <openssl/md5.h>
#include <span>
#include <stdexcept>
#include <string>

namespace lanyard::bench {

using Bytes = std::span<const uint8_t>;
using Digest = std::array<uint8_t, MD5_DIGEST_LENGTH>;

class SharedSecret {
  public:
    // At most 64 bytes.
    explicit SharedSecret(std::string secret)
        : secret_(std::move(secret)), inner_(keyed(0x36)), outer_(keyed(0x5c)) {}

    // MD5 of the parts and the secret after them: the response authenticator.
    [[nodiscard]] Digest seal(std::initializer_list<Bytes> parts) const {
        MD5_CTX context;
        MD5_Init(&context);
        add(context, parts);
        MD5_Update(&context, secret_.data(), secret_.size());
        return finish(context);
    }

    // HMAC-MD5 of the parts: the Message-Authenticator. The blocks of the key are computed once.
    [[nodiscard]] Digest sign(std::initializer_list<Bytes> parts) const {
        MD5_CTX context = inner_;
        add(context, parts);
        const Digest digest = finish(context);
        context = outer_;
        add(context, {digest});
        return finish(context);
    }

  private:
    [[nodiscard]] MD5_CTX keyed(uint8_t pad) const {
        std::array<uint8_t, MD5_CBLOCK> key{};
        if (secret_.size() > key.size()) {
            throw std::length_error("the secret is too long");
        }
        std::copy(secret_.begin(), secret_.end(), key.begin());
        for (uint8_t &octet : key) {
            octet ^= pad;
        }
        MD5_CTX context;
        MD5_Init(&context);
        MD5_Update(&context, key.data(), key.size());
        return context;
    }

    static void add(MD5_CTX &context, std::initializer_list<Bytes> parts) {
        for (const Bytes part : parts) {
            MD5_Update(&context, part.data(), part.size());
        }
    }

    static Digest finish(MD5_CTX &context) {
        Digest digest{};
        MD5_Final(digest.data(), &context);
        return digest;
    }

    std::string secret_;
    MD5_CTX inner_;
    MD5_CTX outer_;
};

}  // namespace lanyard::bench

#endif
