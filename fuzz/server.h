// The far end of a request: answers that a script describes, signed with the secret, so that what is in them
// gets as far as a real server's would.
#ifndef LANYARD_FUZZ_SERVER_H
#define LANYARD_FUZZ_SERVER_H

#include "fuzz/environment.h"

namespace lanyard::fuzz {

inline constexpr const char *kSecret = "secret";

// How the first byte of an answer has it made. What is not wrong is right.
enum : uint8_t {
    kWrongAuthenticator = 1,
    kSigned = 2,      // its first Message-Authenticator, or one that is added at the end
    kHiddenKeys = 4,  // MS-MPPE keys stand in the script in plain
    kWrongIdentifier = 8,
    kWrongLength = 16,  // the length field; the authenticator is made with it
    kCut = 32,          // the datagram ends early
    kBlank = 64         // the whole datagram is in the script
};

struct Answer {
    Bytes datagram;
    bool isGenuine = false;  // a reply to that request by somebody who knows the secret
};

// Reads kind, code and attributes: two bytes, then a long part.
Answer answerFrom(Script &script, ByteView request);

// Whether a request is in order: its length, its attributes, and its signature where it has one.
bool isSound(ByteView request);

}  // namespace lanyard::fuzz

#endif
