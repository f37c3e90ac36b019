// A list of servers as an option of the configuration gives it.
//
// The first byte chooses: its lowest bit the kind of server, the others which allocation fails
// (0: none). The rest is the text.
#include <span>

#include <lanyard/radius/conf.h>

#include "fuzz/environment.h"

namespace {

using namespace lanyard::fuzz;

// A secret for which there was no memory is missing; radConfAssert() says so.
void checkServers(uint32_t option, int type, bool memoryFailed) {
    int configured = 0;
    if (const void *value = radConfGet(option)) {
        for (const RadServer &server :
             std::span(static_cast<const RadServer *>(value), RAD_SERVERS_MAX)) {
            if (server.host != nullptr) {
                ++configured;
                require(server.host[0] != '\0' && (server.secret != nullptr || memoryFailed),
                        "a server has a host and a secret");
            }
        }
    }
    require(configured == radConfGetNumServers(type), "the count is that of the servers");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const uint32_t type = data[0] & 1 ? RAD_SERVER_ACCT : RAD_SERVER_AUTH;
    const std::vector<char> text = textFrom(data + 1, size - 1);
    const size_t before = liveBlocks();
    failAllocation(data[0] >> 1);

    const int status = radConfSetServers(text.data(), type);
    require(status == 0 || status == -1, "a list is taken or refused");
    const bool memoryFailed = allocationFailed();
    failAllocation(0);
    checkServers(RAD_CONF_AUTH_SERVERS, RAD_SERVER_AUTH, memoryFailed);
    checkServers(RAD_CONF_ACCT_SERVERS, RAD_SERVER_ACCT, memoryFailed);
    radConfAuthServList();

    radConfDelAuthServ();
    radConfDelAcctServ();
    require(liveBlocks() == before, "every block is freed");
    return 0;
}
