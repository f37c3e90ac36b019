// Secrets that are kept beside the configuration.
#ifndef LANYARD_BASE_SECRETS_H
#define LANYARD_BASE_SECRETS_H

#include <atomic>

namespace lanyard {

// Set by who keeps some. Null while nobody does.
inline constinit std::atomic<void (*)()> wipeKeptSecrets{nullptr};

// For who deletes servers: what was kept of their secrets goes with them.
inline void forgetKeptSecrets() {
    if (const auto wipe = wipeKeptSecrets.load(std::memory_order_relaxed)) {
        wipe();
    }
}

}  // namespace lanyard

#endif
