// MD5, HMAC-MD5 and the MD5 stream cipher of RADIUS.
#include "client/md5.h"

#include <array>
#include <cstring>
#include <openssl/crypto.h>
#include <openssl/md5.h>

#include <lanyard/radius/engine.h>

#include "base/partition.h"

namespace lanyard {
namespace {

constexpr size_t kHmacBlockSize = 64;

using Digest = std::array<uint8_t, RAD_DIGEST_SIZE>;
using HmacPad = std::array<uint8_t, kHmacBlockSize>;

// MD5 over a padded key and the bytes behind it: one half of HMAC.
void keyedDigest(Digest &out, const HmacPad &key, uint8_t padding, const uint8_t *data,
                 size_t size) {
    HmacPad pad = key;
    for (uint8_t &byte : pad) {
        byte ^= padding;
    }
    MD5_CTX context;
    MD5_Init(&context);
    MD5_Update(&context, pad.data(), pad.size());
    MD5_Update(&context, data, size);
    MD5_Final(out.data(), &context);
    OPENSSL_cleanse(pad.data(), pad.size());
}

}  // namespace
}  // namespace lanyard

using namespace lanyard;

int rc_md5_calc(uint8_t *out, const uint8_t *data, uint32_t length) {
    if (!out || (!data && length > 0)) {
        return 0;
    }
    MD5_CTX context;
    MD5_Init(&context);
    MD5_Update(&context, data, length);
    return MD5_Final(out, &context);
}

void radHmacMd5Calc(uint8_t *out, const uint8_t *data, uint32_t dataLength, const uint8_t *key,
                    uint32_t keyLength) {
    if (!out || (!data && dataLength > 0) || (!key && keyLength > 0)) {
        return;
    }
    HmacPad paddedKey{};
    if (keyLength > paddedKey.size()) {
        rc_md5_calc(paddedKey.data(), key, keyLength);
    } else if (keyLength > 0) {
        std::memcpy(paddedKey.data(), key, keyLength);
    }
    Digest inner{};
    Digest outer{};
    keyedDigest(inner, paddedKey, 0x36, data, dataLength);
    keyedDigest(outer, paddedKey, 0x5C, inner.data(), inner.size());
    std::memcpy(out, outer.data(), outer.size());
    OPENSSL_cleanse(paddedKey.data(), paddedKey.size());
    OPENSSL_cleanse(inner.data(), inner.size());
}

int radMd5Crypt(const char *secret, const uint8_t *authenticator, const uint8_t *salt,
                int saltLength, const uint8_t *input, int length, uint8_t *output, int decrypt) {
    if (!secret || !authenticator || !input || !output || (salt && saltLength < 0)) {
        return -1;
    }
    const size_t secretSize = std::strlen(secret);
    const size_t chainedSize = secretSize + kHidingBlockSize;
    const size_t saltSize = salt ? static_cast<size_t>(saltLength) : 0;
    // Secret, chaining block and, for the first block alone, the salt: what each digest is taken
    // over.
    const auto scratch = allocateSecret(chainedSize + saltSize);
    if (!scratch) {
        return -1;
    }
    std::memcpy(scratch.get(), secret, secretSize);
    std::memcpy(scratch.get() + secretSize, authenticator, kHidingBlockSize);
    if (saltSize > 0) {
        std::memcpy(scratch.get() + chainedSize, salt, saltSize);
    }
    size_t digestedSize = chainedSize + saltSize;
    Digest digest{};
    // Bytes behind the last whole block are left alone: callers pad.
    for (int done = 0; length - done >= static_cast<int>(kHidingBlockSize);
         done += static_cast<int>(kHidingBlockSize)) {
        rc_md5_calc(digest.data(), scratch.get(), static_cast<uint32_t>(digestedSize));
        for (size_t i = 0; i < kHidingBlockSize; ++i) {
            output[i] = input[i] ^ digest[i];
        }
        const uint8_t *ciphertext = decrypt ? input : output;
        std::memcpy(scratch.get() + secretSize, ciphertext, kHidingBlockSize);
        digestedSize = chainedSize;
        input += kHidingBlockSize;
        output += kHidingBlockSize;
    }
    OPENSSL_cleanse(digest.data(), digest.size());
    return 0;
}
