#include "database.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <iostream>
#include <sys/stat.h>
#include <unistd.h>

#include <dbaccess.h>

namespace lanyardctl {

Statement::Statement(sqlite3 *db, std::string_view sql) : db_(db) {
    sqlite3_stmt *statement = nullptr;
    check(sqlite3_prepare_v2(db, sql.data(), static_cast<int>(sql.size()), &statement, nullptr));
    statement_.reset(statement);
}

void Statement::bind(int parameter, int64_t number) {
    check(sqlite3_bind_int64(statement_.get(), parameter, number));
}

void Statement::bind(int parameter, const std::optional<std::string> &text) {
    check(text ? sqlite3_bind_text(statement_.get(), parameter, text->data(),
                                   static_cast<int>(text->size()), SQLITE_TRANSIENT)
               : sqlite3_bind_null(statement_.get(), parameter));
}

void Statement::bind(int parameter, const std::vector<uint8_t> &bytes) {
    check(sqlite3_bind_blob(statement_.get(), parameter, bytes.data(),
                            static_cast<int>(bytes.size()), SQLITE_TRANSIENT));
}

bool Statement::step() {
    const int status = sqlite3_step(statement_.get());
    check(status == SQLITE_ROW || status == SQLITE_DONE ? SQLITE_OK : status);
    return status == SQLITE_ROW;
}

int64_t Statement::number(int column) const {
    return sqlite3_column_int64(statement_.get(), column);
}

std::optional<std::string> Statement::text(int column) const {
    const unsigned char *text = sqlite3_column_text(statement_.get(), column);
    return text ? std::optional<std::string>(reinterpret_cast<const char *>(text)) : std::nullopt;
}

std::vector<uint8_t> Statement::bytes(int column) const {
    const auto *bytes = static_cast<const uint8_t *>(sqlite3_column_blob(statement_.get(), column));
    return bytes
               ? std::vector<uint8_t>(bytes, bytes + sqlite3_column_bytes(statement_.get(), column))
               : std::vector<uint8_t>();
}

void Statement::check(int status) const {
    if (status != SQLITE_OK) {
        throw Failure(std::string("database: ") + sqlite3_errmsg(db_));
    }
}

std::string defaultFile(const std::string &path, bool makesFolder) {
    const char *root = secure_getenv("PAL_ROOT");
    std::string file = (root ? root : "") + path;
    std::error_code error;
    if (makesFolder) {
        std::filesystem::create_directories(std::filesystem::path(file).parent_path(), error);
    }
    if (error) {
        throw Failure("cannot make the folder of " + file + ": " + error.message());
    }
    return file;
}

Database::Database(std::string file) : file_(std::move(file)) {
    sqlite3 *db = nullptr;
    const int status = sqlite3_open_v2(file_.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr);
    db_.reset(db);
    if (status != SQLITE_OK) {
        const int reason = db ? sqlite3_system_errno(db) : 0;
        throw Failure("cannot open the database " + file_ + ": " +
                      (reason != 0 ? std::strerror(reason) : sqlite3_errstr(status)));
    }
    sqlite3_busy_handler(db, sqliteBusyHandler, nullptr);
    // What is deleted may be a secret.
    run("PRAGMA secure_delete=ON");
    closeToOthers();
}

// Another program may have made the file, and what SQLite keeps beside it has the file's mode. By
// their names: to open and close one of them would drop the locks that SQLite holds.
void Database::closeToOthers() const {
    bool changed = false;
    for (const char *suffix : {"", "-wal", "-shm", "-journal"}) {
        const std::string file = sqlite3_db_filename(db_.get(), "main") + std::string(suffix);
        struct stat status {};
        if (lstat(file.c_str(), &status) != 0 || !S_ISREG(status.st_mode) ||
            (status.st_mode & (S_IRWXG | S_IRWXO)) == 0) {
            continue;
        }
        run("PRAGMA schema_version");  // A file that is no database is not ours to change.
        if (chmod(file.c_str(), status.st_mode & S_IRWXU) == 0) {
            changed = true;
        } else if (errno != ENOENT) {
            throw Failure(
                "others than its owner have access to " + file +
                ", which holds secrets, and that cannot be changed: " + std::strerror(errno));
        }
    }
    if (changed) {
        std::cerr << "lanyardctl: others had access to the database " + file_ +
                         ", which holds secrets; now it is its owner's alone\n";
    }
}

Database Database::open(const std::string &file) {
    // A file that only cannot be looked at is left to SQLite, which tells why.
    std::error_code error;
    if (std::filesystem::status(file, error).type() == std::filesystem::file_type::not_found) {
        throw Failure("there is no database " + file + "; 'lanyardctl db init' makes one");
    }
    return Database(file);
}

Database Database::create(const std::string &file) {
    constexpr mode_t kOwnerOnly = S_IRUSR | S_IWUSR;
    const int created = ::open(file.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, kOwnerOnly);
    if (created >= 0) {
        fchmod(created, kOwnerOnly);  // A umask may have taken more than it should.
        close(created);
    } else if (errno != EEXIST) {
        throw Failure("cannot make the database " + file + ": " + std::strerror(errno));
    }
    return Database(file);
}

int64_t Database::number(std::string_view sql) const {
    Statement statement = query(sql);
    return statement.step() ? statement.number(0) : 0;
}

WriteTransaction::~WriteTransaction() {
    try {
        if (open_) {
            db_.run("ROLLBACK");
        }
    } catch (const Failure &) {
        // SQLite has ended the transaction itself.
    }
}

void WriteTransaction::commit() {
    db_.run("COMMIT");
    open_ = false;
}

}  // namespace lanyardctl
