// The NT-Response (RFC 2433 section A.5, RFC 2759 section 8.5), computed. The library and the
// device's program share it.
#ifndef LANYARD_LOGIN_NT_RESPONSE_COMPUTE_H
#define LANYARD_LOGIN_NT_RESPONSE_COMPUTE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <openssl/md4.h>

namespace lanyard {

constexpr size_t kNtChallengeSize = 8;
constexpr size_t kNtResponseSize = 24;
constexpr size_t kNtPasswordMax = 256;  // UTF-16 code units, RFC 2759 section 8.1

using NtHash = std::array<uint8_t, MD4_DIGEST_LENGTH>;
using NtResponse = std::array<uint8_t, kNtResponseSize>;

// The hash of a password, which the caller wipes; false for text that is not UTF-8 or too long.
bool hashNtPassword(const char *password, NtHash &hash);

// The response to 8 bytes of any value.
NtResponse respondToChallenge(const NtHash &hash, const uint8_t *challenge);

// Both. A password that has no hash leaves the response alone, as a program that fails does.
void computeNtResponse(const char *password, const uint8_t *challenge, uint8_t *ntResponse);

}  // namespace lanyard

#endif
