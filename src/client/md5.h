// What MD5 fixes for those who use it.
#ifndef LANYARD_CLIENT_MD5_H
#define LANYARD_CLIENT_MD5_H

#include <cstddef>

#include <lanyard/radius/engine.h>

namespace lanyard {

// The stream cipher of RADIUS hides a digest's length at a time (RFC 2865 section 5.2).
constexpr size_t kHidingBlockSize = RAD_DIGEST_SIZE;

}  // namespace lanyard

#endif
