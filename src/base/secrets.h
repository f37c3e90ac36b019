// Secrets that are kept beside the configuration.
#ifndef LANYARD_BASE_SECRETS_H
#define LANYARD_BASE_SECRETS_H

#include <atomic>

namespace lanyard {

// Wipes them; radLibExit() calls it. Null while nobody keeps any.
inline constinit std::atomic<void (*)()> wipeKeptSecrets{nullptr};

}  // namespace lanyard

#endif
