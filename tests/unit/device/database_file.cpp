#include "tests/unit/device/database_file.h"

#include <gtest/gtest.h>

namespace lanyard::test {

DatabaseFile::DatabaseFile(const std::filesystem::path &path) : path_(path.string()) {
    sqlite3 *opened = nullptr;
    EXPECT_EQ(SQLITE_OK, sqlite3_open(path_.c_str(), &opened)) << path_;
    db_.reset(opened);
    // A test needs no file that outlives a loss of power.
    run("PRAGMA synchronous=OFF; PRAGMA journal_mode=MEMORY;"
        "CREATE TABLE environment (name TEXT, value TEXT);"
        "CREATE TABLE radiusClient (authserver TEXT, authport TEXT, authsecret TEXT,"
        " authtimeout TEXT, authretries TEXT);"
        "CREATE TABLE networkInterface (interfaceName TEXT, ipaddr TEXT);");
}

void DatabaseFile::run(const std::string &sql) const {
    EXPECT_EQ(SQLITE_OK, sqlite3_exec(db_.get(), sql.c_str(), nullptr, nullptr, nullptr))
        << sql << ": " << sqlite3_errmsg(db_.get());
}

void DatabaseFile::nameDictionary(std::string_view path) const {
    run("INSERT INTO environment VALUES ('RADIUS_DICTIONARY', '" + std::string(path) + "')");
}

int DatabaseFile::addServer(const std::string &values) const {
    run("INSERT INTO radiusClient VALUES (" + values + ")");
    return static_cast<int>(sqlite3_last_insert_rowid(db_.get()));
}

}  // namespace lanyard::test
