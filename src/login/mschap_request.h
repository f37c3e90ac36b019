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

// How the functions of the family tell of their outcome: one that prints, one that hands back
// limits.
Reporting printingReport(const char *function);
Reporting quietReport(const char *function);

// Starts a request: User-Name and MS-CHAP-Challenge.
bool startMschapRequest(PairList &request, const char *userName,
                        std::span<const uint8_t> challenge);

// Ends it: the response as sub-attribute `vendorType`, Service-Type.
bool finishMschapRequest(PairList &request, int vendorType, const MschapResponse &response);

}  // namespace lanyard

#endif
