#include "tests/unit/tools/lanyardctl/device.h"

#include <fstream>
#include <iterator>

namespace lanyard::test {

namespace {

lanyardctl::Database makeDatabase(const TemporaryRoot &root) {
    std::ifstream dictionary(LANYARD_DICTIONARY);
    root.write("/nexa2.0/etc/radius.dict",
               std::string(std::istreambuf_iterator<char>(dictionary), {}));
    // The library opens what the database says as a path of the device.
    root.makeFolder("/var");
    auto db = lanyardctl::Database::create(root.path("/config.db").string());
    lanyardctl::prepareDatabase(db, std::nullopt);
    return db;
}

}  // namespace

Device::Device() : db_(makeDatabase(root_)) {}

bool Device::tryChange(const std::string &sql) const {
    try {
        db_.run(sql);
        return true;
    } catch (const lanyardctl::Failure &) {
        return false;
    }
}

std::vector<lanyardctl::Server> Device::usable() const {
    return lanyardctl::usableServers(lanyardctl::readServers(db_));
}

std::string Device::expectedFile() const {
    std::string entries;
    for (const auto &server : lanyardctl::readServers(db_)) {
        entries += (entries.empty() ? "" : ", ") + *server.host + ":" + *server.port + ":" +
                   *server.timeout + ":" + *server.retries + ":" + *server.secret;
    }
    return entries.empty()
               ? ""
               : "authserver        " + entries + "\ndictionary        /nexa2.0/etc/radius.dict\n";
}

std::string Device::confFile() const {
    return root_.exists("/var/radius.conf") ? root_.read("/var/radius.conf") : "";
}

std::string insertion(const std::string &host, const std::string &secret, int port) {
    return "INSERT INTO radiusClient VALUES('" + host + "', '" + std::to_string(port) + "', '" +
           secret + "', '10', '3')";
}

}  // namespace lanyard::test
