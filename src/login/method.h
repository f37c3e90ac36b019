// The login methods: which inputs each takes, and what it sends after User-Name.
#ifndef LANYARD_LOGIN_METHOD_H
#define LANYARD_LOGIN_METHOD_H

#include <cstdint>

#include "attr/pair_list.h"

namespace lanyard {

// Where the NT-Response comes from: as RAD_OPTION_BUILTIN_NT_RESPONSE says, or computed here.
enum class NtResponseSource { kOption, kInProcess };

struct Pap {
    const char *password;

    bool isGood() const;
    bool addTo(PairList &request) const;
};

struct Chap {
    const uint8_t *response;
    int responseLength;
    const uint8_t *challenge;
    int challengeLength;

    bool isGood() const;
    bool addTo(PairList &request) const;
};

// User name and password are there.
struct Mschap {
    const char *userName;
    const char *password;
    NtResponseSource source;

    bool addTo(PairList &request) const;
};

struct Mschapv2 {
    const char *userName;
    const char *password;
    NtResponseSource source;

    bool addTo(PairList &request) const;
};

}  // namespace lanyard

#endif
