// A device's database: an SQLite file with the tables that the library reads, empty.
//
//     const DatabaseFile database(root.path("/device.db"));
//     database.nameDictionary("/etc/radius.dict");
//     const int rowId = database.addServer("'a', '1812', 's1', '5', '3'");
//     EXPECT_EQ(0, radiusMgmtInit(database.path(), "test"));
//
// Tables: environment (name, value), radiusClient (authserver, authport, authsecret, authtimeout,
// authretries), networkInterface (interfaceName, ipaddr).
#ifndef LANYARD_TESTS_UNIT_MGMT_DATABASE_FILE_H
#define LANYARD_TESTS_UNIT_MGMT_DATABASE_FILE_H

#include <filesystem>
#include <memory>
#include <sqlite3.h>
#include <string>
#include <string_view>

namespace lanyard::test {

class DatabaseFile {
  public:
    explicit DatabaseFile(const std::filesystem::path &path);

    [[nodiscard]] const char *path() const { return path_.c_str(); }

    // Runs any number of statements; an error fails the test.
    void run(const std::string &sql) const;

    void nameDictionary(std::string_view path) const;

    // Adds a row of "radiusClient", its values in the order of the columns as SQL has them, and
    // returns its rowid.
    [[nodiscard]] int addServer(const std::string &values) const;

  private:
    struct Closer {
        void operator()(sqlite3 *db) const { sqlite3_close(db); }
    };

    std::string path_;
    std::unique_ptr<sqlite3, Closer> db_;
};

}  // namespace lanyard::test

#endif
