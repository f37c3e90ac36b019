// A whole configuration file. A dictionary that it names is the same input again, read as one.
#include <lanyard/radius/conf.h>

#include "fuzz/files.h"

using namespace lanyard::fuzz;

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fileContent.assign(data, data + size);
    radDeconfigure();
    const size_t before = liveBlocks();

    const int status = radConfigure("/input");
    require(status == 0 || status == -1, "a file is taken or refused");
    if (status == 0) {
        require(radConfAssert() == 0, "what is taken is complete");
        require(radConfGet(RAD_CONF_TIMEOUT) != nullptr && radConfGet(RAD_CONF_RETRIES) != nullptr,
                "what is taken has a time-out and a retry count");
        require(radConfGetNumServers(RAD_SERVER_AUTH) > 0, "what is taken has a server");
    }

    radDeconfigure();
    require(liveBlocks() == before, "every block is freed");
    return 0;
}
