// Keys of HMACs, and those that are kept.
#include "client/hmac_key.h"

#include <algorithm>
#include <cstring>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/engine.h>

#include "base/lock.h"
#include "base/secrets.h"

namespace lanyard {
namespace {

constexpr size_t kBlockSize = 64;
constexpr uint8_t kInnerPadding = 0x36;
constexpr uint8_t kOuterPadding = 0x5C;

using Block = std::array<uint8_t, kBlockSize>;

struct KeptKey {
    Block padded{};
    HmacKey::States states{};
    bool used = false;
};

constinit Mutex mutex;
constinit std::array<KeptKey, RAD_SERVERS_MAX> keptKeys{};
constinit size_t replaced = 0;

void wipeKeptKeys() {
    const Lock lock(mutex);
    explicit_bzero(keptKeys.data(), sizeof(keptKeys));
}

// The key as the block that the digests begin with: a longer one is digested first.
class PaddedKey {
  public:
    explicit PaddedKey(std::span<const uint8_t> key) {
        if (key.size() > block_.size()) {
            rc_md5_calc(block_.data(), key.data(), static_cast<uint32_t>(key.size()));
        } else {
            std::copy(key.begin(), key.end(), block_.begin());
        }
    }
    PaddedKey(const PaddedKey &) = delete;
    PaddedKey &operator=(const PaddedKey &) = delete;
    ~PaddedKey() { OPENSSL_cleanse(block_.data(), block_.size()); }

    const Block &block() const { return block_; }

    // Where they are kept: a copy on the way would stay on the stack.
    void digest(HmacKey::States &states) const {
        digest(kInnerPadding, states.inner);
        digest(kOuterPadding, states.outer);
    }

  private:
    void digest(uint8_t padding, HmacKey::State &state) const {
        Block padded = block_;
        for (uint8_t &byte : padded) {
            byte ^= padding;
        }
        MD5_CTX context;
        MD5_Init(&context);
        MD5_Update(&context, padded.data(), padded.size());
        state[0] = context.A;
        state[1] = context.B;
        state[2] = context.C;
        state[3] = context.D;
        OPENSSL_cleanse(padded.data(), padded.size());
        OPENSSL_cleanse(&context, sizeof(context));
    }

    Block block_{};
};

// The digest of a block that left that state, and of the data after it.
void finish(const HmacKey::State &state, std::span<const uint8_t> data, uint8_t *out) {
    MD5_CTX context{};
    context.A = state[0];
    context.B = state[1];
    context.C = state[2];
    context.D = state[3];
    context.Nl = 8 * kBlockSize;
    MD5_Update(&context, data.data(), data.size());
    MD5_Final(out, &context);
    explicit_bzero(&context, sizeof(context));
}

}  // namespace

HmacKey::HmacKey(std::span<const uint8_t> key) {
    PaddedKey(key).digest(states_);
}

HmacKey::HmacKey(const char *secret) {
    const PaddedKey key({reinterpret_cast<const uint8_t *>(secret), std::strlen(secret)});
    const Lock lock(mutex);
    auto *kept = std::find_if(keptKeys.begin(), keptKeys.end(), [&key](const KeptKey &candidate) {
        return candidate.used && candidate.padded == key.block();
    });
    if (kept == keptKeys.end()) {
        kept = &keptKeys[replaced++ % keptKeys.size()];
        // One by one: a record made first would leave the secret on the stack.
        kept->padded = key.block();
        key.digest(kept->states);
        kept->used = true;
        wipeKeptSecrets.store(wipeKeptKeys, std::memory_order_relaxed);
    }
    // An assignment went by way of the stack under a sanitizer.
    std::memcpy(&states_, &kept->states, sizeof(states_));
}

void HmacKey::digest(std::span<const uint8_t> data, uint8_t *out) const {
    std::array<uint8_t, RAD_DIGEST_SIZE> inner;
    finish(states_.inner, data, inner.data());
    finish(states_.outer, inner, out);
    OPENSSL_cleanse(inner.data(), inner.size());
}

}  // namespace lanyard
