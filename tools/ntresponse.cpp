/**
 * @file
 * ntresponse: computes the NT-Response of MS-CHAP (RFC 2433 section A.5, RFC 2759 section 8.5).
 *
 *     ntresponse PASSWORD CHALLENGE FILE
 *
 * The device knows it as /nexa2.0/bin/orvane_getNTResponse. PASSWORD is UTF-8, CHALLENGE is 8 raw
 * octets, FILE receives exactly 24 octets; it is created anew, for its owner alone.
 */
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <openssl/asn1.h>
#include <openssl/crypto.h>
#include <openssl/des.h>
#include <openssl/md4.h>
#include <span>
#include <unistd.h>

#include <palcore.h>

namespace {

constexpr size_t kChallengeSize = 8;
constexpr size_t kDesKeySize = 7;
constexpr size_t kPasswordMax = 256;  // UTF-16 code units, RFC 2759 section 8.1

using NtHash = std::array<uint8_t, MD4_DIGEST_LENGTH>;
using NtResponse = std::array<uint8_t, 3 * kChallengeSize>;

// The password in UTF-16LE, wiped at the end.
class Utf16Password {
  public:
    Utf16Password() = default;
    Utf16Password(const Utf16Password &) = delete;
    Utf16Password &operator=(const Utf16Password &) = delete;
    ~Utf16Password() { OPENSSL_cleanse(octets_.data(), octets_.size()); }

    bool convert(const char *utf8);
    std::span<const uint8_t> octets() const { return std::span(octets_).first(size_); }

  private:
    bool add(unsigned long unit) {
        if (size_ + 2 > octets_.size()) {
            return false;
        }
        octets_[size_++] = static_cast<uint8_t>(unit);
        octets_[size_++] = static_cast<uint8_t>(unit >> 8);
        return true;
    }

    std::array<uint8_t, 2 * kPasswordMax> octets_{};
    size_t size_ = 0;
};

// False for text that is not UTF-8 or too long.
bool Utf16Password::convert(const char *utf8) {
    constexpr unsigned long kBasicPlane = 0xFFFF;
    constexpr unsigned long kUnicodeMax = 0x10FFFF;
    std::span<const char> left(utf8, std::strlen(utf8));
    while (!left.empty()) {
        unsigned long character = 0;
        const int taken = UTF8_getc(reinterpret_cast<const unsigned char *>(left.data()),
                                    static_cast<int>(left.size()), &character);
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

// Spreads 56 bits over the eight octets of a DES key.
void makeDesKey(std::span<const uint8_t> bits, DES_cblock &key) {
    uint64_t value = 0;
    for (const uint8_t octet : bits) {
        value = value << 8 | octet;
    }
    for (size_t i = 0; i < sizeof(key); ++i) {
        key[i] = static_cast<uint8_t>(value >> 7 * (7 - i) << 1);
    }
    DES_set_odd_parity(&key);
}

// Encrypts the challenge with each third of the hash, padded with zeros.
NtResponse respond(const NtHash &hash, const uint8_t *challenge) {
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
        OPENSSL_cleanse(&key, sizeof(key));
        OPENSSL_cleanse(&schedule, sizeof(schedule));
    }
    OPENSSL_cleanse(keys.data(), keys.size());
    return response;
}

// Creates the file anew and writes the response; errno tells what went wrong.
bool writeAnew(const char *path, const NtResponse &response) {
    if (palUnlink(path) != 0 && errno != ENOENT) {
        return false;
    }
    const int file = palOpen(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600);
    if (file < 0) {
        return false;
    }
    errno = EIO;  // what a short write means
    const bool written =
        write(file, response.data(), response.size()) == static_cast<ssize_t>(response.size());
    const int error = errno;
    const bool closed = palClose(file) == 0;
    if (!written || !closed) {
        if (!written) {
            errno = error;
        }
        const int reason = errno;
        palUnlink(path);
        errno = reason;
        return false;
    }
    return true;
}

}  // namespace

int main(int argc, char *argv[]) {
    if (argc != 4) {
        std::fprintf(stderr, "Usage: %s PASSWORD CHALLENGE FILE\n",
                     argc > 0 ? argv[0] : "ntresponse");
        return EXIT_FAILURE;
    }
    char *password = argv[1];
    const char *challenge = argv[2];
    const char *path = argv[3];

    Utf16Password utf16;
    const bool converted = utf16.convert(password);
    OPENSSL_cleanse(password, std::strlen(password));
    if (!converted) {
        std::fprintf(stderr, "ntresponse: the password is not UTF-8 of at most %zu characters\n",
                     kPasswordMax);
        return EXIT_FAILURE;
    }
    if (std::strlen(challenge) != kChallengeSize) {
        std::fprintf(stderr, "ntresponse: the challenge has %zu octets instead of %zu\n",
                     std::strlen(challenge), kChallengeSize);
        return EXIT_FAILURE;
    }

    NtHash hash{};
    MD4(utf16.octets().data(), utf16.octets().size(), hash.data());
    const NtResponse response = respond(hash, reinterpret_cast<const uint8_t *>(challenge));
    OPENSSL_cleanse(hash.data(), hash.size());
    if (!writeAnew(path, response)) {
        std::fprintf(stderr, "ntresponse: %s: %s\n", path, std::strerror(errno));
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
