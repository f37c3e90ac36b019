// One login at the configured servers, and what became of it at each.
#ifndef LANYARDCTL_LOGIN_H
#define LANYARDCTL_LOGIN_H

#include <array>
#include <optional>
#include <string>
#include <vector>

#include <lanyard/radius/error.h>
#include <lanyard/radius/loop.h>

#include "attributes.h"
#include "radius_packet.h"

namespace lanyardctl {

enum class Method { kPap, kChap, kMschap, kMschapv2 };

struct MethodName {
    Method method;
    const char *name;  // on the command line
    const char *shown;
};
inline constexpr std::array<MethodName, 4> kMethods = {
    {{Method::kPap, "pap", "PAP"},
     {Method::kChap, "chap", "CHAP"},
     {Method::kMschap, "mschap", "MS-CHAP"},
     {Method::kMschapv2, "mschapv2", "MS-CHAPv2"}}};

// The row of a name that the command line took.
const MethodName &methodOf(const std::string &name);

struct LoginOutcome {
    int code = -1;            // of the reply; -1 for none
    double milliseconds = 0;  // from the first send to the last server to its answer, or to the end
    bool isSigned = false;    // the reply carries a Message-Authenticator, which was right
    std::vector<ShownAttribute> attributes;
    std::vector<RadLastError> servers;  // those that were asked, in order
};

// Starts a login. Null when the library refuses name or password, for this reason.
RadRequest *startLogin(Method method, RadLoop *loop, const std::string &user,
                       const std::string &password, RadLoginDone done, void *context);
inline constexpr const char *kLoginRefused =
    "the library refuses this user name or password: a name has at most 64 characters, a password "
    "at most 48, and "
    "with MS-CHAP it is UTF-8";

// Logs a user in, over the library's loop; it has to be configured. Throws a Failure for arguments that
// the library refuses.
LoginOutcome logIn(Method method, const std::string &user, const std::string &password);

}  // namespace lanyardctl

#endif
