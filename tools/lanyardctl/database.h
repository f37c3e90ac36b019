// SQLite with owners and exceptions.
#ifndef LANYARDCTL_DATABASE_H
#define LANYARDCTL_DATABASE_H

#include <cstdint>
#include <memory>
#include <optional>
#include <sqlite3.h>
#include <stdexcept>
#include <string>
#include <string_view>

namespace lanyardctl {

// What went wrong, in words for the person who runs the program.
class Failure : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

class Statement {
  public:
    Statement(sqlite3 *db, std::string_view sql);

    // Parameters count from 1.
    Statement &bind(int parameter, int64_t number);
    Statement &bind(int parameter, std::string_view text);
    Statement &bind(int parameter, const std::string &text) {
        return bind(parameter, std::string_view(text));
    }
    Statement &bind(int parameter, const std::optional<std::string> &text);

    // True while there is a row to read.
    bool step();
    void run();

    // Columns of the row count from 0. A text ends at its first NUL: nothing that reads these tables
    // gets to see more of it.
    [[nodiscard]] int64_t number(int column) const;
    [[nodiscard]] std::optional<std::string> text(int column) const;

  private:
    struct Finalizer {
        void operator()(sqlite3_stmt *statement) const { sqlite3_finalize(statement); }
    };

    void check(int status) const;

    sqlite3 *db_;
    std::unique_ptr<sqlite3_stmt, Finalizer> statement_;
};

// Where others than the owner have access to a database, it takes that from them and says so on
// standard error; that it cannot is a Failure.
class Database {
  public:
    // Opens a file that is there; one that is not is a Failure that names `db init`.
    static Database open(const std::string &file);
    // Makes the file first where it is missing, readable for its owner alone.
    static Database create(const std::string &file);

    [[nodiscard]] const std::string &file() const { return file_; }

    [[nodiscard]] Statement prepare(std::string_view sql) const;
    void run(std::string_view sql) const;
    // The first column of the first row; 0 when there is none.
    [[nodiscard]] int64_t number(std::string_view sql) const;

    // Changes with every change that another connection commits.
    [[nodiscard]] int64_t dataVersion() const;
    [[nodiscard]] int64_t lastRow() const;

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
    explicit WriteTransaction(const Database &db);
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
