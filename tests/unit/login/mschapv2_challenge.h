// The challenges of MS-CHAPv2 and their hashes, as its tests expect them.
#ifndef LANYARD_TESTS_UNIT_LOGIN_MSCHAPV2_CHALLENGE_H
#define LANYARD_TESTS_UNIT_LOGIN_MSCHAPV2_CHALLENGE_H

#include <string_view>

#include <lanyard/radius/engine.h>
#include <lanyard/radius/frame.h>

#include "tests/support/test.h"

namespace lanyard::test {

constexpr size_t kChallengeSize = 16;
constexpr size_t kHashSize = 8;

inline const Bytes kAuthenticatorChallenge = Bytes(kChallengeSize, 1);
// That of RFC 2759 section 9.2, for the user "User".
inline const Bytes kPeerChallenge = "21402324255e262a28295f2b3a337c7e"_hex;

// Sets the option for as long as it is there.
class StandardSha1 {
  public:
    explicit StandardSha1(int value = 1) {
        EXPECT_EQ(0, radOptionSet(RAD_OPTION_STANDARD_SHA1, value));
    }
    StandardSha1(const StandardSha1 &) = delete;
    StandardSha1 &operator=(const StandardSha1 &) = delete;
    ~StandardSha1() { EXPECT_EQ(0, radOptionSet(RAD_OPTION_STANDARD_SHA1, 0)); }
};

// The challenge hash with the library's own SHA-1.
inline Bytes ownHash(ByteView peerChallenge, std::string_view userName) {
    const Bytes hashed = concatenate({peerChallenge, kAuthenticatorChallenge, fromText(userName)});
    SHA1_CTX context;
    SHA1Init(&context);
    SHA1Update(&context, hashed.data(), static_cast<uint32_t>(hashed.size()));
    Bytes digest(RAD_SHA1_SIZE);
    SHA1Final(digest.data(), &context);
    digest.resize(kHashSize);
    return digest;
}

}  // namespace lanyard::test

#endif
