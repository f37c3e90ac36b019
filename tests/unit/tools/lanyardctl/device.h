// A device in a temporary folder: its database with the table "radiusClient", its dictionary file,
// and the place of its configuration file.
#ifndef LANYARD_TESTS_LANYARDCTL_DEVICE_H
#define LANYARD_TESTS_LANYARDCTL_DEVICE_H

#include <string>
#include <vector>

#include "tests/support/temporary_root.h"
#include "tools/lanyardctl/database.h"
#include "tools/lanyardctl/servers.h"

namespace lanyard::test {

class Device {
  public:
    Device();

    [[nodiscard]] const TemporaryRoot &root() const { return root_; }
    [[nodiscard]] std::string file() const { return root_.path("/config.db").string(); }

    // Another program's connection.
    [[nodiscard]] const lanyardctl::Database &db() const { return db_; }

    // Runs statements of another program, for which changes that break a rule may fail.
    void change(const std::string &sql) const { db_.run(sql); }
    bool tryChange(const std::string &sql) const;

    // The rows that the relay is to hold, and the file that is to be written for the whole table.
    [[nodiscard]] std::vector<lanyardctl::Server> usable() const;
    [[nodiscard]] std::string expectedFile() const;
    // "" when there is none.
    [[nodiscard]] std::string confFile() const;

  private:
    TemporaryRoot root_;
    lanyardctl::Database db_;
};

// "INSERT INTO radiusClient ..." for a server with this host.
std::string insertion(const std::string &host, const std::string &secret = "secret",
                      int port = 1812);

}  // namespace lanyard::test

#endif
