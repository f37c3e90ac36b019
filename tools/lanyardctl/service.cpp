#include "service.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <sys/stat.h>
#include <utility>

#include <palcore.h>

#include "table.h"
#include "tools/file_descriptor.h"

namespace lanyardctl {

namespace {

constexpr const char *kTable = "radiusClient";
constexpr const char *kConfFile = "/var/radius.conf";
constexpr std::chrono::milliseconds kLookEvery{1000};
constexpr std::chrono::milliseconds kLookSoon{10};
constexpr std::chrono::milliseconds kNoTime{0};
constexpr std::chrono::milliseconds kMoment{50};  // more than a relay that listens needs

// The configuration file; none when there is none. One that others may read reads as "".
std::optional<std::string> readConfFile() {
    const int opened = palOpen(kConfFile, O_RDONLY, 0);
    if (opened < 0) {
        return errno == ENOENT ? std::nullopt : std::optional<std::string>("");
    }
    const lanyard::FileDescriptor file(opened, kConfFile);
    struct stat status {};
    std::string text;
    std::array<char, 4096> buffer{};
    for (int got = 0; (got = palRead(file.get(), buffer.data(), buffer.size())) > 0;) {
        text.append(buffer.data(), static_cast<size_t>(got));
    }
    const bool isPrivate = fstat(file.get(), &status) == 0 && (status.st_mode & 077U) == 0;
    return isPrivate ? text : "";
}

// Whether the file is as the table has it. A table without servers has none, but then it may be one
// that somebody else has written: it stays, unless it is of the library's form.
bool isAsWanted(const std::optional<std::string> &file, const std::vector<Server> &servers) {
    if (!servers.empty()) {
        return file == confFileOf(servers);
    }
    const std::string nothing = confFileOf({});
    const std::string keyword = nothing.substr(0, nothing.find('\n'));
    const std::string rest = nothing.substr(keyword.size());
    return !file || !file->starts_with(keyword) || !file->ends_with(rest);
}

// A row as a notice carries it: texts with their NULs laid end to end, names, then values.
std::string oldValuesOf(const Server &row, const std::vector<std::string> &columns) {
    std::string names;
    std::string values;
    for (const std::string &column : columns) {
        const auto *const known =
            std::find_if(kServerColumns.begin(), kServerColumns.end(),
                         [&](const Column &entry) { return column == entry.column; });
        names += column + '\0';
        values += (known != kServerColumns.end() ? (row.*known->field).value_or("") : "") + '\0';
    }
    return names + values;
}

// Takes the fields from a row that another row of that id in the table, or none, has not.
void keepWhatIsSame(Server &row, const std::vector<Server> &servers) {
    const auto now = std::find_if(servers.begin(), servers.end(),
                                  [&](const Server &server) { return server.id == row.id; });
    for (const Column &column : kServerColumns) {
        if (now == servers.end() || row.*column.field != (*now).*column.field) {
            (row.*column.field).reset();
        }
    }
}

}  // namespace

Service::Service(const std::string &file, Relay &relay, Report &report)
    : db_(Database::open(file)), relay_(relay), report_(report), run_(relay.run()) {
    readServers(db_);
}

void Service::lookAgain() {
    fileDone_ = false;
    relayDone_ = false;
}

void Service::replay() {
    relayDone_ = false;
    patience_ = kLookSoon;
    if (!isNew_) {
        held_.reset();
        pending_.reset();
    }
}

void Service::look() {
    try {
        const int64_t version = db_.number("PRAGMA data_version");
        if (std::string run = relay_.run(); run != run_) {
            meet(std::move(run));
        }
        if (version != version_) {
            version_ = version;
            lookAgain();
        }
        fileDone_ = fileDone_ || bringFile();
        if (!relayDone_) {
            setState(bringRelay());
        }
        report_.putRight("database");
    } catch (const std::exception &failure) {
        lookAgain();
        state_ = State::failed;
        report_.problem("database", failure.what());
    }
    patience_ = fileDone_ && relayDone_ ? kLookEvery : std::min(2 * patience_, kLookEvery);
}

// A new run of the relay holds nothing.
void Service::meet(std::string run) {
    run_ = std::move(run);
    held_.emplace();
    pending_.reset();
    isNew_ = true;
    notices_ = 0;
    patience_ = kLookSoon;
    lookAgain();
}

// True when there is nothing more to do until the table changes.
bool Service::bringFile() {
    const std::string name = kConfFile;
    const WriteTransaction transaction(db_);
    const std::vector<Server> servers = readServers(db_);
    if (const auto problem = fileProblemOf(servers)) {
        report_.problem("file", name + " stays as it was: " + *problem);
        return true;
    }
    if (!isAsWanted(readConfFile(), servers)) {
        if (radiusClientTblHandler(db_.file().c_str(), RAD_DB_UPDATE) != 0) {
            report_.problem("file", name + " could not be written; PAL_DEBUG_LEVELS=156 shows why");
            return false;
        }
        report_.event("file",
                      name + (servers.empty() ? " removed: no servers"
                                              : " written: " + counted(servers.size(), "server")));
    }
    report_.putRight("file");
    return true;
}

// Gives the relay one notice after the other, as far as it answers. Every step is remembered at once:
// whatever stops it, held_ is what the relay holds.
Service::State Service::bringRelay() {
    while (true) {
        const std::vector<Server> servers = readServers(db_);
        reportRows(servers);
        if (run_.empty() || run_ == ended_) {
            return ended_.empty() ? State::none : State::restarting;
        }
        ended_.clear();
        if (!held_) {
            return restartRelay();
        }
        std::optional<WriteTransaction> alone;
        if (!pending_) {
            if (*held_ == usableServers(servers)) {
                break;
            }
            alone.emplace(db_);
            pending_ = nextNotice(usableServers(readServers(db_)));
            if (!pending_) {
                continue;
            }
            if (!queue(*pending_)) {
                pending_.reset();
                return waitFor(State::none);
            }
        }
        const Relay::Answer answer = relay_.answer(alone ? kMoment : kNoTime);
        if (!alone) {
            keepWhatIsSame(pending_->row, readServers(db_));
        }
        alone.reset();
        if (answer == Relay::Answer::awaited) {
            return waitFor(State::waiting);
        }
        const Notice notice = *std::exchange(pending_, std::nullopt);
        settle(notice, answer);
        if (!held_) {
            patience_ = kLookSoon;
            return State::busy;
        }
        if (answer == Relay::Answer::refused && notice.row.host) {
            report_.problem(
                "relay",
                "it refuses change notices or stopped answering; does it read the database " +
                    db_.file() + "?");
            return State::failed;
        }
    }
    if (const size_t notices = std::exchange(notices_, 0); notices != 0) {
        report_.event(
            "relay", "has " + counted(held_->size(), "server") + ": " + counted(notices, "notice"));
    }
    return State::upToDate;
}

// Who has just made its socket may not listen to it yet, and who is asked needs a moment to answer.
Service::State Service::waitFor(State state) const {
    return patience_ < kLookEvery ? State::busy : state;
}

Service::State Service::restartRelay() {
    // To look for its process in all there are is not for every second.
    if (patience_ < kLookEvery && relay_.end()) {
        ended_ = run_;
        report_.event("relay",
                      "told to end, for it is not known what it holds; it gets all servers once it "
                      "is started again");
        return State::restarting;
    }
    if (!relay_.isThere()) {
        return waitFor(State::none);
    }
    report_.problem("relay",
                    "it is not known what it holds, and its process is not found; start it again");
    return State::failed;
}

// The first step from what the relay holds to what it is to hold.
std::optional<Service::Notice> Service::nextNotice(const std::vector<Server> &target) const {
    size_t slot = 0;
    for (; slot < std::min(held_->size(), target.size()); ++slot) {
        const Server &held = held_->at(slot);
        if (held.id != target[slot].id || held.host != target[slot].host) {
            break;
        }
        if (held != target[slot]) {
            return Notice{RAD_DB_UPDATE, target[slot], slot};
        }
    }
    if (slot < held_->size()) {
        return Notice{RAD_DB_DELETE, held_->back(), held_->size() - 1};
    }
    return slot < target.size() ? std::optional(Notice{RAD_DB_INSERT, target[slot], slot})
                                : std::nullopt;
}

bool Service::queue(const Notice &notice) {
    RadDbUpdateInfo record{};
    record.rowKey = kRowKey;
    record.rowId = static_cast<int32_t>(notice.row.id);
    record.opCode = notice.operation;
    std::strncpy(record.tableName, kTable, sizeof(record.tableName) - 1);
    return relay_.queue(run_, record,
                        notice.operation == RAD_DB_INSERT
                            ? ""
                            : oldValuesOf(held_->at(notice.slot), readColumns(db_)));
}

void Service::settle(const Notice &notice, Relay::Answer answer) {
    const bool isDone = answer == Relay::Answer::done;
    isNew_ = false;
    notices_ += isDone ? 1 : 0;
    if (std::string run = relay_.run(); run != run_) {
        meet(std::move(run));
        if (answer != Relay::Answer::ended) {
            held_.reset();  // What was meant for the one before may have come to this one.
            isNew_ = false;
        }
    } else if (isDone && notice.operation == RAD_DB_DELETE) {
        held_->pop_back();
    } else if (isDone && notice.row.host) {
        held_->resize(std::max(held_->size(), notice.slot + 1));
        held_->at(notice.slot) = notice.row;
    } else if (answer != Relay::Answer::refused || notice.operation != RAD_DB_INSERT) {
        held_.reset();  // An update that fails may have freed the slot.
    }
}

void Service::setState(State state) {
    relayDone_ = state == State::upToDate || state == State::restarting;
    if (state != State::failed && state != State::busy) {
        report_.putRight("relay");
    }
    if (std::exchange(state_, state) == state) {
        return;
    }
    if (state == State::none) {
        report_.event("relay", "none answers on the bus; it gets what it lacks once one does");
    } else if (state == State::waiting) {
        report_.event("relay", "does not listen; it gets what it lacks once it does");
    }
}

void Service::reportRows(const std::vector<Server> &servers) {
    const auto problems = problemsOf(servers);
    std::string text;
    for (size_t i = 0; i < servers.size(); ++i) {
        if (problems[i]) {
            text += (text.empty() ? "row " : "; row ") + std::to_string(servers[i].id) +
                    " is left out: " + *problems[i];
        }
    }
    if (text.empty()) {
        report_.putRight("table");
    } else {
        report_.problem("table", text);
    }
}

}  // namespace lanyardctl
