// What MS-CHAP and MS-CHAPv2 share (RFC 2548 section 2.1).
#ifndef LANYARD_LOGIN_MSCHAP_REQUEST_H
#define LANYARD_LOGIN_MSCHAP_REQUEST_H

#include <array>
#include <cstdint>
#include <span>

#include "login/login.h"
#include "login/nt_response_compute.h"

namespace lanyard {

constexpr size_t kMschapResponseSize = 50;
constexpr uint8_t kMschapIdent = 0xB9;

using MschapResponse = std::array<uint8_t, kMschapResponseSize>;

// Adds a sub-attribute of Microsoft.
bool addMicrosoft(PairList &request, int vendorType, std::span<const uint8_t> data);

}  // namespace lanyard

#endif
