#include "accounting_queue.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

namespace lanyardctl {

AccountingQueue::AccountingQueue(const std::string &file) : db_(Database::create(file)) {
    // Many may want to store at once, and none gives up.
    db_.run("PRAGMA busy_timeout=60000");
    // A commit is on the disk, the end of the journal included.
    db_.run("PRAGMA journal_mode=DELETE");
    db_.run("PRAGMA synchronous=EXTRA");
    db_.run(
        "CREATE TABLE IF NOT EXISTS record("
        "id INTEGER PRIMARY KEY AUTOINCREMENT, made INTEGER NOT NULL, session TEXT NOT NULL, "
        "status INTEGER NOT NULL, packet BLOB NOT NULL, in_vain INTEGER NOT NULL DEFAULT 0)");
}

int64_t AccountingQueue::store(const Record &record) const {
    Statement stored = db_.query(
        "INSERT INTO record(made, session, status, packet) VALUES(?1, ?2, ?3, ?4) RETURNING id",
        record.made, record.session, int64_t{record.status}, record.packet);
    stored.step();
    const int64_t id = stored.number(0);
    stored.step();  // to its end: this commits
    return id;
}

void AccountingQueue::remove(int64_t id) const {
    db_.run("DELETE FROM record WHERE id=?1", id);
}

std::optional<Record> AccountingQueue::next(int64_t after) const {
    Statement found = db_.query(
        "SELECT id, made, session, status, packet FROM record WHERE id>?1 ORDER BY id LIMIT 1",
        after);
    if (!found.step()) {
        return std::nullopt;
    }
    return Record{.id = found.number(0),
                  .made = found.number(1),
                  .session = found.text(2).value_or(""),
                  .status = static_cast<uint32_t>(found.number(3)),
                  .packet = found.bytes(4)};
}

int64_t AccountingQueue::waiting() const {
    return db_.number("SELECT count(*) FROM record");
}

void AccountingQueue::noteSilence() const {
    db_.run("UPDATE record SET in_vain=1 WHERE in_vain=0");
}

AccountingQueue::State AccountingQueue::stateOf(int64_t id) const {
    Statement found = db_.query("SELECT in_vain FROM record WHERE id=?1", id);
    return !found.step()          ? State::kGone
           : found.number(0) != 0 ? State::kWaitsInVain
                                  : State::kWaits;
}

AccountingQueue::Turn::Turn(const AccountingQueue &queue)
    : file_(open((queue.file() + "-turn").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR),
            queue.file() + "-turn") {
    while (flock(file_.get(), LOCK_EX) != 0) {
        if (errno != EINTR) {
            throw Failure(queue.file() + "-turn: cannot be locked");
        }
    }
}

}  // namespace lanyardctl
