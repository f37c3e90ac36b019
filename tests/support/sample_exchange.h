// The exchange of RFC 2865 section 7.1, for the tests of the tools.
#ifndef LANYARD_TESTS_SUPPORT_SAMPLE_EXCHANGE_H
#define LANYARD_TESTS_SUPPORT_SAMPLE_EXCHANGE_H

#include "tests/support/bytes.h"
#include "tests/support/radius_wire.h"

namespace lanyard::test {

inline constexpr const char *kSecret = "xyzzy5461";

inline Bytes sampleRequest() {
    return "01000038 0f403f9473978057bd83d5cb98f4227a 01066e656d6f"
           "02120dbe708d93d413ce3196e43f782a0aee 0406c0a80110 050600000003"_hex;
}

inline Bytes sampleReply() {
    return "02000026 86fe220e7624ba2a1005f6bf9b55e0b2 060600000001 0f0600000000 0e06c0a80103"_hex;
}

inline Attributes sampleReplyAttributes() {
    return Attributes().addInteger(6, 1).addInteger(15, 0).addAddress(14, "192.168.1.3");
}

}  // namespace lanyard::test

#endif
