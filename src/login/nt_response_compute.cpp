#include "login/nt_response_compute.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <openssl/asn1.h>
#include <openssl/crypto.h>
#include <openssl/des.h>
#include <span>

namespace lanyard {
namespace {

constexpr size_t kDesKeySize = 7;

// The password in UTF-16LE, wiped at the end.
class Utf16Password {
  public:
    Utf16Password() = default;
    Utf16Password(const Utf16Password &) = delete;
    Utf16Password &operator=(const Utf16Password &) = delete;
    ~Utf16Password() { OPENSSL_cleanse(bytes_.data(), bytes_.size()); }

    bool convert(const char *utf8);
    std::span<const uint8_t> bytes() const { return std::span(bytes_).first(size_); }

  private:
    bool add(unsigned long unit) {
        if (size_ + 2 > bytes_.size()) {
            return false;
        }
        bytes_[size_++] = static_cast<uint8_t>(unit);
        bytes_[size_++] = static_cast<uint8_t>(unit >> 8);
        return true;
    }

    std::array<uint8_t, 2 * kNtPasswordMax> bytes_{};
    size_t size_ = 0;
};

// False for text that is not UTF-8 or too long.
bool Utf16Password::convert(const char *utf8) {
    constexpr unsigned long kBasicPlane = 0xFFFF;
    constexpr unsigned long kUnicodeMax = 0x10FFFF;
    std::span<const char> left(utf8, std::strlen(utf8));
    while (!left.empty()) {
        // No character is longer, and the length of a whole text need not fit an int.
        constexpr size_t kUtf8Max = 6;
        unsigned long character = 0;
        const int taken = UTF8_getc(reinterpret_cast<const unsigned char *>(left.data()),
                                    static_cast<int>(std::min(left.size(), kUtf8Max)), &character);
        if (taken < 1 || character > kUnicodeMax) {
            return false;
        }
        left = left.subspan(static_cast<size_t>(taken));
        if (character <= kBasicPlane) {
            if (!add(character)) {
                return false;
            }
        } else {
            const unsigned long beyond = character - kBasicPlane - 1;
            if (!add(0xD800 | beyond >> 10) || !add(0xDC00 | (beyond & 0x3FF))) {
                return false;
            }
        }
    }
    return true;
}

// Spreads 56 bits over the eight bytes of a DES key.
void makeDesKey(std::span<const uint8_t> bits, DES_cblock &key) {
    uint64_t value = 0;
    for (const uint8_t byte : bits) {
        value = value << 8 | byte;
    }
    for (size_t i = 0; i < sizeof(key); ++i) {
        key[i] = static_cast<uint8_t>(value >> 7 * (7 - i) << 1);
    }
    DES_set_odd_parity(&key);
}

// Overwrites what libcrypto's functions have left on the stack: the block that they encrypted last.
[[gnu::noinline]] void wipeStackBelow() {
    std::array<uint8_t, 512> frame;
    explicit_bzero(frame.data(), frame.size());
}

}  // namespace

bool hashNtPassword(const char *password, NtHash &hash) {
    Utf16Password utf16;
    if (!utf16.convert(password)) {
        return false;
    }
    MD4(utf16.bytes().data(), utf16.bytes().size(), hash.data());
    return true;
}

// Encrypts the challenge with each third of the hash, padded with zeros.
NtResponse respondToChallenge(const NtHash &hash, const uint8_t *challenge) {
    std::array<uint8_t, 3 * kDesKeySize> keys{};
    std::copy(hash.begin(), hash.end(), keys.begin());
    NtResponse response{};
    for (size_t i = 0; i < 3; ++i) {
        DES_cblock key;
        DES_cblock input;
        DES_cblock output;
        DES_key_schedule schedule;
        makeDesKey(std::span(keys).subspan(i * kDesKeySize, kDesKeySize), key);
        DES_set_key_unchecked(&key, &schedule);
        std::memcpy(&input, challenge, sizeof(input));
        DES_ecb_encrypt(&input, &output, &schedule, DES_ENCRYPT);
        std::memcpy(response.data() + i * sizeof(output), &output, sizeof(output));
        OPENSSL_cleanse(&output, sizeof(output));
        OPENSSL_cleanse(&key, sizeof(key));
        OPENSSL_cleanse(&schedule, sizeof(schedule));
    }
    OPENSSL_cleanse(keys.data(), keys.size());
    wipeStackBelow();
    return response;
}

void computeNtResponse(const char *password, const uint8_t *challenge, uint8_t *ntResponse) {
    NtHash hash{};
    if (hashNtPassword(password, hash)) {
        NtResponse response = respondToChallenge(hash, challenge);
        std::copy(response.begin(), response.end(), ntResponse);
        OPENSSL_cleanse(response.data(), response.size());
    }
    OPENSSL_cleanse(hash.data(), hash.size());
}

}  // namespace lanyard
