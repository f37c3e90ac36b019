// The device's own address, from its database.
#include <arpa/inet.h>

#include <lanyard/radius/mgmt.h>

#include "base/log.h"
#include "device/database.h"

uint32_t radGetHostIPFromDB(void) {
    using namespace lanyard;
    constexpr uint32_t kNotFound = 0;
    const Connection connection("radGetHostIPFromDB");
    const auto result = runQuery(connection.get(), nullptr,
                                 "SELECT ipaddr from networkInterface WHERE interfaceName='bdg'");
    if (!result) {
        radDeviceLog(kLogError, "sqlite3QueryResGet failed\n");
        return kNotFound;
    }
    if (result.empty()) {
        radDeviceLog(kLogError, "empty result. nRows=%d nCols=%d\n", result.rows, result.columns);
        return kNotFound;
    }
    const char *address = columnValue(result.table.get(), result.columns, 0, "ipaddr");
    if (!address) {
        return kNotFound;
    }
    radDeviceLog(kLogTrace, "Host IP address: %s\n", address);
    return inet_addr(address);
}
