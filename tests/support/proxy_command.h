// Settings of a UdpProxy as text, for command lines and for a script that steers a proxy while it runs.
//
//     delay MS              each way; also delay-to-server and delay-to-client; 0.5 is half a millisecond
//     loss P                and duplicate, reorder, truncate, corrupt: a probability, of 0 to 1
//     forge KIND            ahead of every reply: none, junk, accept, digest, foreign
//     forged-share P        the share of the replies that this happens to; 1 unless told
//     flood N               answer every request with so many forged accepts, 10 ms apart
//     ignore NAME           swallow requests with that User-Name; none without a name
//     dead on|off           swallow everything
//     refused on|off        as if nobody listened
#ifndef LANYARD_TESTS_SUPPORT_PROXY_COMMAND_H
#define LANYARD_TESTS_SUPPORT_PROXY_COMMAND_H

#include <string>
#include <vector>

#include "tests/support/udp_proxy.h"

namespace lanyard::test {

// The names of all commands.
std::vector<std::string> proxyCommands();

// Changes the settings. Throws std::invalid_argument, which says what is wrong, and leaves them then.
void applyProxyCommand(const std::string &name, const std::string &value, ProxySettings &settings);

// The same for a line: name, a blank, value.
void applyProxyCommand(const std::string &line, ProxySettings &settings);

}  // namespace lanyard::test

#endif
