// ntresponse: computes the NT-Response of MS-CHAP (RFC 2433 section A.5, RFC 2759 section 8.5).
//
//     ntresponse PASSWORD CHALLENGE FILE
//
// The device knows it as /nexa2.0/bin/orvane_getNTResponse. PASSWORD is UTF-8, CHALLENGE is 8 raw
// bytes, FILE receives exactly 24 bytes; it is created anew, for its owner alone.
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <openssl/crypto.h>
#include <unistd.h>

#include <palcore.h>

#include "login/nt_response_compute.h"

namespace {

using lanyard::hashNtPassword;
using lanyard::kNtChallengeSize;
using lanyard::kNtPasswordMax;
using lanyard::NtHash;
using lanyard::NtResponse;
using lanyard::respondToChallenge;

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
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
        std::puts(
            "ntresponse: computes the NT-Response of MS-CHAP.\n"
            "Usage: ntresponse PASSWORD CHALLENGE FILE\n"
            "  PASSWORD   UTF-8\n"
            "  CHALLENGE  8 bytes\n"
            "  FILE       is made anew and gets the 24 bytes of the response\n"
            "  --help, --version  alone: print this, or the version");
        return EXIT_SUCCESS;
    }
    if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
        std::puts("ntresponse " LANYARD_VERSION);
        return EXIT_SUCCESS;
    }
    if (argc != 4) {
        std::fprintf(stderr, "Usage: %s PASSWORD CHALLENGE FILE\n",
                     argc > 0 ? argv[0] : "ntresponse");
        return EXIT_FAILURE;
    }
    char *password = argv[1];
    const char *challenge = argv[2];
    const char *path = argv[3];

    NtHash hash{};
    const bool hashed = hashNtPassword(password, hash);
    OPENSSL_cleanse(password, std::strlen(password));
    if (!hashed) {
        std::fprintf(stderr, "ntresponse: the password is not UTF-8 of at most %zu characters\n",
                     kNtPasswordMax);
        return EXIT_FAILURE;
    }
    if (std::strlen(challenge) != kNtChallengeSize) {
        OPENSSL_cleanse(hash.data(), hash.size());
        std::fprintf(stderr, "ntresponse: the challenge has %zu octets instead of %zu\n",
                     std::strlen(challenge), kNtChallengeSize);
        return EXIT_FAILURE;
    }

    const NtResponse response =
        respondToChallenge(hash, reinterpret_cast<const uint8_t *>(challenge));
    OPENSSL_cleanse(hash.data(), hash.size());
    if (!writeAnew(path, response)) {
        std::fprintf(stderr, "ntresponse: %s: %s\n", path, std::strerror(errno));
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
