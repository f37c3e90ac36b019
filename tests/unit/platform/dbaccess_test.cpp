// Queries to the configuration database.
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <numeric>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <dbaccess.h>
#include <palcore.h>

#include "tests/support/temporary_folder.h"

namespace {

std::vector<int> delays;

// What happens within the next wait.
std::function<void()> onDelay;

}  // namespace

// In front of the port's: a wait is seen and takes no time.
int palTaskDelay(int milliseconds) {
    delays.push_back(milliseconds);
    if (onDelay) {
        std::exchange(onDelay, nullptr)();
    }
    return 0;
}

namespace lanyard::test::dbaccess_test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

struct Closer {
    void operator()(sqlite3 *db) const { EXPECT_EQ(SQLITE_OK, sqlite3_close(db)); }
};

// A result, and what it held.
struct Result {
    bool isNull = true;
    int32_t columns = -1;
    int32_t rows = -1;
    std::vector<std::optional<std::string>> texts;
};

class DbAccess : public testing::Test {
  protected:
    void SetUp() override {
        db_.reset(open());
        run("CREATE TABLE radiusClient (authserver TEXT, authport INTEGER, note TEXT);"
            "INSERT INTO radiusClient VALUES ('192.0.2.1', 1812, NULL);"
            "INSERT INTO radiusClient VALUES ('192.0.2.2', 1645, '');");
        delays.clear();
    }

    sqlite3 *open() const {
        sqlite3 *db = nullptr;
        EXPECT_EQ(SQLITE_OK, sqlite3_open(file_.c_str(), &db));
        return db;
    }

    void run(const char *sql) const {
        EXPECT_EQ(SQLITE_OK, sqlite3_exec(db_.get(), sql, nullptr, nullptr, nullptr))
            << sqlite3_errmsg(db_.get());
    }

    static Result query(sqlite3 *db, const char *file, const char *sql) {
        Result result;
        char **table = sqlite3QueryResGet(db, file, sql, &result.columns, &result.rows);
        result.isNull = table == nullptr;
        if (table != nullptr) {
            for (int i = 0; i < (result.rows + 1) * result.columns; ++i) {
                result.texts.push_back(table[i] == nullptr ? std::optional<std::string>()
                                                           : table[i]);
            }
        }
        sqlite3_free_table(table);
        return result;
    }

    // The two ways to name a database.
    Result byHandle(const char *sql) const { return query(db_.get(), nullptr, sql); }
    Result byFile(const char *sql) const { return query(nullptr, file_.c_str(), sql); }

    const TemporaryFolder temporary_;
    const std::string folder_ = temporary_.path();
    const std::string file_ = folder_ + "/system.db";
    std::unique_ptr<sqlite3, Closer> db_;
};

TEST_F(DbAccess, Query_ReturnsTheNamesAndThenTheRows) {
    for (const Result &result :
         {byHandle("SELECT * from radiusClient "), byFile("SELECT * from radiusClient ")}) {
        EXPECT_FALSE(result.isNull);
        EXPECT_EQ(3, result.columns);
        EXPECT_EQ(2, result.rows);
        EXPECT_THAT(result.texts, ElementsAre("authserver", "authport", "note", "192.0.2.1", "1812",
                                              std::nullopt, "192.0.2.2", "1645", ""));
    }
}

TEST_F(DbAccess, QueryWithoutRows_EmptyAndNoFailure) {
    const Result result = byHandle("SELECT * FROM radiusClient WHERE rowid=7");
    EXPECT_FALSE(result.isNull);
    EXPECT_EQ(0, result.columns);
    EXPECT_EQ(0, result.rows);

    char **table = nullptr;
    int rows = -1;
    int columns = -1;
    ASSERT_EQ(SQLITE_OK, sqlite3_get_table(db_.get(), "SELECT * FROM radiusClient WHERE rowid=7",
                                           &table, &rows, &columns, nullptr));
    EXPECT_EQ(rows, result.rows) << "as SQLite has it";
    EXPECT_EQ(columns, result.columns);
    sqlite3_free_table(table);
}

TEST_F(DbAccess, EveryKindOfReading_Runs) {
    for (const char *sql : {
             "SELECT count(*), upper(authserver) FROM radiusClient GROUP BY note",
             "WITH RECURSIVE n(x) AS (SELECT 1 UNION SELECT x+1 FROM n WHERE x<3) SELECT * FROM n",
             "VALUES (1), (2)",
             "SELECT name FROM sqlite_master",
             "SELECT a.authserver FROM radiusClient a JOIN radiusClient b",
             " \n SELECT 1 ; ",
             "SELECT 1;;;",
             "; SELECT 1",
             "-- first\nSELECT 1 -- last",
             "/* first */ SELECT 1; /* last */ -- and more",
         }) {
        EXPECT_FALSE(byHandle(sql).isNull) << sql << ": " << sqlite3_errmsg(db_.get());
        EXPECT_FALSE(byFile(sql).isNull) << sql;
    }
}

TEST_F(DbAccess, AllButOneReadingStatement_Refused) {
    const std::string attach = "ATTACH '" + folder_ + "/other.db' AS other";
    const std::string into = "VACUUM INTO '" + folder_ + "/copy.db'";
    const auto before = byHandle("SELECT * FROM radiusClient").texts;
    for (const char *sql : {
             "",
             "  ;; -- nothing",
             "SELECT",
             "SELECT * FROM missing",
             "SELECT 1; SELECT 2",
             "SELECT 1; DROP TABLE radiusClient",
             "SELECT 1; not a statement",
             "SELECT 1;;;/* */;DELETE FROM radiusClient",
             "SELECT * from radiusClient; DELETE FROM radiusClient -- WHERE rowid=1",
             "INSERT INTO radiusClient VALUES (1, 2, 3)",
             "INSERT INTO radiusClient VALUES (1, 2, 3) RETURNING authserver",
             "UPDATE radiusClient SET authport=1",
             "DELETE FROM radiusClient",
             "WITH x AS (SELECT 1) DELETE FROM radiusClient",
             "DROP TABLE radiusClient",
             "CREATE TABLE other (a)",
             "CREATE TEMP TABLE other (a)",
             "CREATE VIEW v AS SELECT 1",
             "ALTER TABLE radiusClient RENAME TO x",
             "PRAGMA user_version=5",
             "PRAGMA user_version",
             "SELECT * FROM pragma_user_version",
             "BEGIN",
             "SAVEPOINT a",
             "VACUUM",
             "REINDEX",
             "ANALYZE",
             "DETACH main",
             "SELECT load_extension('/tmp/x')",
             "SELECT LOAD_EXTENSION('/tmp/x', 'y')",
             attach.c_str(),
             into.c_str(),
         }) {
        for (const Result &result : {byHandle(sql), byFile(sql)}) {
            EXPECT_TRUE(result.isNull) << sql;
            EXPECT_EQ(0, result.columns) << sql;
            EXPECT_EQ(0, result.rows) << sql;
        }
    }
    EXPECT_EQ(before, byHandle("SELECT * FROM radiusClient").texts);
    EXPECT_FALSE(fs::exists(folder_ + "/other.db"));
    EXPECT_FALSE(fs::exists(folder_ + "/copy.db"));
    EXPECT_NE(0, sqlite3_get_autocommit(db_.get()));
}

TEST_F(DbAccess, ConnectionAfterAQuery_MayWriteAgain) {
    EXPECT_FALSE(byHandle("SELECT 1").isNull);
    run("UPDATE radiusClient SET authport=7");
    EXPECT_TRUE(byHandle("DELETE FROM radiusClient").isNull);
    run("DELETE FROM radiusClient");
}

TEST_F(DbAccess, FileThatIsMissing_NotCreated) {
    const std::string missing = folder_ + "/missing.db";
    EXPECT_TRUE(query(nullptr, missing.c_str(), "SELECT 1").isNull);
    EXPECT_FALSE(fs::exists(missing));
    EXPECT_TRUE(query(nullptr, folder_.c_str(), "SELECT 1").isNull);
    EXPECT_TRUE(query(nullptr, "", "SELECT 1").isNull);
}

TEST_F(DbAccess, FileThatIsNoDatabase_Fails) {
    const std::string path = folder_ + "/text";
    FILE *file = std::fopen(path.c_str(), "we");
    ASSERT_NE(nullptr, file);
    for (int i = 0; i < 1000; ++i) {
        (void)std::fputs("authserver 192.0.2.1\n", file);
    }
    ASSERT_EQ(0, std::fclose(file));
    EXPECT_TRUE(query(nullptr, path.c_str(), "SELECT * FROM radiusClient").isNull);
}

TEST_F(DbAccess, NoDatabaseOrNoStatement_NoResult) {
    EXPECT_TRUE(query(nullptr, nullptr, "SELECT 1").isNull);
    EXPECT_TRUE(byHandle(nullptr).isNull);
    EXPECT_TRUE(byFile(nullptr).isNull);
    int32_t count = 0;
    EXPECT_EQ(nullptr, sqlite3QueryResGet(db_.get(), nullptr, "SELECT 1", nullptr, &count));
    EXPECT_EQ(nullptr, sqlite3QueryResGet(db_.get(), nullptr, "SELECT 1", &count, nullptr));
}

TEST_F(DbAccess, OpenDatabaseAndFile_TakesTheDatabase) {
    const std::string missing = folder_ + "/missing.db";
    EXPECT_FALSE(query(db_.get(), missing.c_str(), "SELECT * FROM radiusClient").isNull);
}

TEST_F(DbAccess, FileLockedForAWhile_Waits) {
    run("BEGIN EXCLUSIVE");
    onDelay = [this] { run("COMMIT"); };
    EXPECT_EQ(2, byFile("SELECT * FROM radiusClient").rows);
    EXPECT_THAT(delays, ElementsAre(1));
}

TEST_F(DbAccess, FileLockedForGood_FailsAtLast) {
    run("BEGIN EXCLUSIVE");
    EXPECT_TRUE(byFile("SELECT * FROM radiusClient").isNull);
    const int total = std::accumulate(delays.begin(), delays.end(), 0);
    EXPECT_GE(total, 5000);
    EXPECT_LT(total, 5200);
    run("COMMIT");
}

TEST_F(DbAccess, ConnectionSharedByThreads_EachGetsItsResult) {
    // One writes through the connection while others read through it: a query never runs without
    // its check, and the check stops nobody else's statement.
    std::atomic<int> failures{0};
    std::atomic<int> deleted{0};
    std::vector<std::thread> readers;
    readers.reserve(2);
    for (int i = 0; i < 2; ++i) {
        readers.emplace_back([&] {
            for (int n = 0; n < 100; ++n) {
                failures += byHandle("SELECT * FROM radiusClient").isNull ? 1 : 0;
                deleted += byHandle("DELETE FROM radiusClient").isNull ? 0 : 1;
            }
        });
    }
    for (std::thread &reader : readers) {
        reader.join();
    }
    EXPECT_EQ(0, failures);
    EXPECT_EQ(0, deleted);
    EXPECT_EQ(2, byHandle("SELECT * FROM radiusClient").rows);
}

TEST(DbBusyHandler, RisingCount_WaitsLongerAndGivesUp) {
    delays.clear();
    int calls = 0;
    while (sqliteBusyHandler(nullptr, calls) == 1) {
        ASSERT_LT(++calls, 1000);
    }
    ASSERT_GT(delays.size(), 10U);
    EXPECT_THAT(std::vector<int>(delays.begin(), delays.begin() + 10),
                ElementsAre(1, 2, 4, 8, 16, 32, 64, 100, 100, 100));
    EXPECT_EQ(100, *std::max_element(delays.begin(), delays.end()));
    const int total = std::accumulate(delays.begin(), delays.end(), 0);
    EXPECT_GE(total, 5000);
    EXPECT_LT(total, 5200);

    delays.clear();
    EXPECT_EQ(0, sqliteBusyHandler(nullptr, calls + 1)) << "it stays at that";
    EXPECT_EQ(0, sqliteBusyHandler(nullptr, -1));
    EXPECT_THAT(delays, IsEmpty());
}

TEST(DbBusyHandler, InvalidContext_NotLookedAt) {
    EXPECT_EQ(1, sqliteBusyHandler(reinterpret_cast<void *>(1), 0));
}

}  // namespace
}  // namespace lanyard::test::dbaccess_test
