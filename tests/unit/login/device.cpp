// The name of the device, for the library: an address, which every resolver answers by itself. So
// NAS-IP-Address is the same on every machine, and no message of the resolver gets into the log.
#include <cstring>
#include <unistd.h>

#include "tests/unit/login/outcome.h"

int gethostname(char *name, size_t len) noexcept {
    std::strncpy(name, lanyard::test::kDeviceAddress, len);
    return 0;
}
