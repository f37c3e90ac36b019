// MD5, HMAC-MD5 and the MD5 stream cipher of RADIUS.
#include "client/md5.h"

#include <array>
#include <cstring>
#include <openssl/crypto.h>
#include <openssl/md5.h>

#include <lanyard/radius/engine.h>

#include "base/partition.h"
#include "client/hmac_key.h"

using namespace lanyard;

int rc_md5_calc(uint8_t *out, const uint8_t *data, uint32_t length) {
    if (!out || (!data && length > 0)) {
        return 0;
    }
    MD5_CTX context;
    MD5_Init(&context);
    MD5_Update(&context, data, length);
    const int status = MD5_Final(out, &context);
    explicit_bzero(&context, sizeof(context));  // its state is the digest, which may be a response
    return status;
}

void radHmacMd5Calc(uint8_t *out, const uint8_t *data, uint32_t dataLength, const uint8_t *key,
                    uint32_t keyLength) {
    if (!out || (!data && dataLength > 0) || (!key && keyLength > 0)) {
        return;
    }
    HmacKey({key, keyLength}).digest({data, dataLength}, out);
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
    std::array<uint8_t, RAD_DIGEST_SIZE> digest{};
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
