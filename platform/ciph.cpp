// The crypto library: MD5 made ready, and its random generator as a source.
#include <algorithm>
#include <climits>
#include <cstring>
#include <openssl/md5.h>
#include <openssl/rand.h>

#include <ciph.h>
#include <palcore.h>

#include "platform/export.h"

namespace lanyard::port {
namespace {

// RFC 1321, appendix A.5: the digest of "abc".
constexpr unsigned char kDigestOfAbc[MD5_DIGEST_LENGTH] = {
    0x90, 0x01, 0x50, 0x98, 0x3c, 0xd2, 0x4f, 0xb0, 0xd6, 0x96, 0x3f, 0x7d, 0x28, 0xe1, 0x7f, 0x72};

}  // namespace
}  // namespace lanyard::port

using namespace lanyard::port;

PAL_EXPORT int ciphMD5Init(void) {
    // libcrypto needs no set-up for MD5; a build of it may lack MD5 all the same.
    unsigned char digest[MD5_DIGEST_LENGTH];
    MD5_CTX context;
    const bool works = MD5_Init(&context) == 1 && MD5_Update(&context, "abc", 3) == 1 &&
                       MD5_Final(digest, &context) == 1 &&
                       std::memcmp(digest, kDigestOfAbc, sizeof digest) == 0;
    return works ? 0 : -1;
}

PAL_EXPORT int palCiphPRNGInit(void * /*context*/, uint8_t *out, uint32_t length) {
    if (out == nullptr && length != 0) {
        return -1;
    }
    while (length != 0) {
        const uint32_t part = std::min<uint32_t>(length, INT_MAX);
        if (RAND_bytes(out, static_cast<int>(part)) != 1) {
            return -1;
        }
        out += part;
        length -= part;
    }
    return 0;
}
