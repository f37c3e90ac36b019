// SHA-1 as this library has it: FIPS 180-1 but for the message words, which are read least
// significant byte first. Its digests are its own; MS-CHAPv2 takes its challenge hash with it, and
// devices in the field expect that one.
#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <span>

#include <lanyard/radius/engine.h>

#include "base/wire.h"

namespace lanyard {
namespace {

constexpr size_t kBlockSize = 64;
constexpr size_t kCountSize = 8;

using Schedule = std::array<uint32_t, 80>;

// The 16 words of a block, least significant byte first, and the 64 that follow from them.
Schedule expand(std::span<const uint8_t, kBlockSize> block) {
    Schedule words{};
    for (size_t t = 0; t < 16; ++t) {
        const auto word = block.subspan(4 * t, 4);
        words[t] = static_cast<uint32_t>(word[0]) | static_cast<uint32_t>(word[1]) << 8 |
                   static_cast<uint32_t>(word[2]) << 16 | static_cast<uint32_t>(word[3]) << 24;
    }
    for (size_t t = 16; t < words.size(); ++t) {
        words[t] = std::rotl(words[t - 3] ^ words[t - 8] ^ words[t - 14] ^ words[t - 16], 1);
    }
    return words;
}

uint32_t roundFunction(size_t t, uint32_t b, uint32_t c, uint32_t d) {
    switch (t / 20) {
        case 0:
            return (b & c) | (~b & d);
        case 2:
            return (b & c) | (b & d) | (c & d);
        default:
            return b ^ c ^ d;
    }
}

size_t bufferedOctets(const SHA1_CTX &context) {
    return context.count[0] / 8 % kBlockSize;
}

void addToCount(SHA1_CTX &context, uint32_t bytes) {
    const uint32_t bits = bytes << 3;
    context.count[0] += bits;
    if (context.count[0] < bits) {
        ++context.count[1];
    }
    context.count[1] += bytes >> 29;
}

}  // namespace
}  // namespace lanyard

using namespace lanyard;

void SHA1Transform(uint32_t state[5], const uint8_t block[64]) {
    constexpr std::array<uint32_t, 4> kConstants = {0x5A827999, 0x6ED9EBA1, 0x8F1BBCDC, 0xCA62C1D6};
    const Schedule words = expand(std::span<const uint8_t, kBlockSize>(block, kBlockSize));
    uint32_t a = state[0];
    uint32_t b = state[1];
    uint32_t c = state[2];
    uint32_t d = state[3];
    uint32_t e = state[4];
    for (size_t t = 0; t < words.size(); ++t) {
        const uint32_t next =
            std::rotl(a, 5) + roundFunction(t, b, c, d) + e + words[t] + kConstants[t / 20];
        e = d;
        d = c;
        c = std::rotl(b, 30);
        b = a;
        a = next;
    }
    state[0] += a;
    state[1] += b;
    state[2] += c;
    state[3] += d;
    state[4] += e;
}

void SHA1Init(SHA1_CTX *ctx) {
    *ctx = {.state = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0},
            .count = {},
            .buffer = {}};
}

void SHA1Update(SHA1_CTX *ctx, const uint8_t *data, uint32_t len) {
    std::span<const uint8_t> left(data, len);
    size_t buffered = bufferedOctets(*ctx);
    addToCount(*ctx, len);
    if (buffered + left.size() >= kBlockSize) {
        const size_t missing = kBlockSize - buffered;
        std::copy_n(left.begin(), missing, ctx->buffer + buffered);
        SHA1Transform(ctx->state, ctx->buffer);
        left = left.subspan(missing);
        for (; left.size() >= kBlockSize; left = left.subspan(kBlockSize)) {
            SHA1Transform(ctx->state, left.data());
        }
        buffered = 0;
    }
    std::copy(left.begin(), left.end(), ctx->buffer + buffered);
}

void SHA1Final(uint8_t digest[20], SHA1_CTX *ctx) {
    constexpr std::array<uint8_t, kBlockSize> kPadding = {0x80};
    std::array<uint8_t, kCountSize> count{};
    ByteWriter countWriter(count);
    countWriter.u32(ctx->count[1]);
    countWriter.u32(ctx->count[0]);

    // One byte 0x80 and zeros, until the count fills the last block.
    const size_t buffered = bufferedOctets(*ctx);
    const size_t paddedTo = buffered < kBlockSize - kCountSize ? kBlockSize : 2 * kBlockSize;
    SHA1Update(ctx, kPadding.data(), static_cast<uint32_t>(paddedTo - kCountSize - buffered));
    SHA1Update(ctx, count.data(), count.size());

    ByteWriter digestWriter({digest, RAD_SHA1_SIZE});
    for (const uint32_t word : ctx->state) {
        digestWriter.u32(word);
    }
    explicit_bzero(ctx, sizeof(*ctx));
}
