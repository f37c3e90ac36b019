// SQLite with owners and exceptions. Whatever fails is a Failure.
#ifndef LANYARDCTL_DATABASE_H
#define LANYARDCTL_DATABASE_H

#include <cstdint>
#include <memory>
#include <optional>
#include <sqlite3.h>
#include <string>
#include <string_view>
#include <vector>

#include "failure.h"

namespace lanyardctl {

class Statement {
  public:
    // The values take the places of ?1, ?2 and so on.
    template <typename... Values>
    Statement(sqlite3 *db, std::string_view sql, const Values &...values) : Statement(db, sql) {
        int parameter = 0;
        (bind(++parameter, values), ...);
    }
    Statement(sqlite3 *db, std::string_view sql);

    // True while there is a row to read.
    bool step();

    // Columns of the row count from 0. A text ends at its first NUL: nothing that reads these tables
    // gets to see more of it.
    [[nodiscard]] int64_t number(int column) const;
    [[nodiscard]] std::optional<std::string> text(int column) const;
    [[nodiscard]] std::vector<uint8_t> bytes(int column) const;

  private:
    struct Finalizer {
        void operator()(sqlite3_stmt *statement) const { sqlite3_finalize(statement); }
    };

    void bind(int parameter, int64_t number);
    void bind(int parameter, const std::optional<std::string> &text);
    void bind(int parameter, const std::vector<uint8_t> &bytes);
    void check(int status) const;

    sqlite3 *db_;
    std::unique_ptr<sqlite3_stmt, Finalizer> statement_;
};

// Where a file lies that the command line does not name: the platform may have the device's files in a folder.
// Its own folder can be made as well.
std::string defaultFile(const std::string &path, bool makesFolder);

// Where others than the owner have access to a database, it takes that from them and says so on
// standard error; that it cannot is a Failure.
class Database {
  public:
    // Opens a file that is there; one that is not is a Failure that names `db init`.
    static Database open(const std::string &file);
    // Makes the file first where it is missing, readable for its owner alone.
    static Database create(const std::string &file);

    [[nodiscard]] const std::string &file() const { return file_; }

    template <typename... Values>
    [[nodiscard]] Statement query(std::string_view sql, const Values &...values) const {
        return {db_.get(), sql, values...};
    }
    template <typename... Values>
    void run(std::string_view sql, const Values &...values) const {
        Statement statement = query(sql, values...);
        while (statement.step()) {
        }
    }
    // The first column of the first row; 0 when there is none.
    [[nodiscard]] int64_t number(std::string_view sql) const;

  private:
    struct Closer {
        void operator()(sqlite3 *db) const { sqlite3_close_v2(db); }
    };

    explicit Database(std::string file);

    void closeToOthers() const;

    std::string file_;
    std::unique_ptr<sqlite3, Closer> db_;
};

// The one writer of the database from construction to commit(); without commit() nothing has
// happened. Others may read meanwhile, and see what was committed before.
class WriteTransaction {
  public:
    explicit WriteTransaction(const Database &db) : db_(db) { db_.run("BEGIN IMMEDIATE"); }
    WriteTransaction(const WriteTransaction &) = delete;
    WriteTransaction &operator=(const WriteTransaction &) = delete;
    ~WriteTransaction();

    void commit();

  private:
    const Database &db_;
    bool open_ = true;
};

}  // namespace lanyardctl

#endif
