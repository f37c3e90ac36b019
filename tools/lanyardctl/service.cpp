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

#include "tools/file_descriptor.h"

namespace lanyardctl {

namespace {

constexpr const char *kTable = "radiusClient";
constexpr const char *kConfFile = "/var/radius.conf";
constexpr std::chrono::milliseconds kLookEvery{1000};
constexpr std::chrono::milliseconds kLookSoon{10};

std::string counted(size_t count, const std::string &what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

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
                         [&](const auto &entry) { return column == entry.first; });
        names += column + '\0';
        values += (known != kServerColumns.end() ? (row.*known->second).value_or("") : "") + '\0';
    }
    return names + values;
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
    if (notices_ != 0) {
        held_.reset();
    }
}

void Service::look() {
    try {
        const int64_t version = db_.dataVersion();
        if (std::string run = relay_.run(); run != run_) {
            run_ = std::move(run);
            held_.emplace();
            notices_ = 0;
            patience_ = kLookSoon;
            lookAgain();
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

Service::State Service::bringRelay() {
    const std::vector<Server> servers = readServers(db_);
    reportRows(servers);
    if (run_.empty()) {
        return ended_.empty() ? State::none : State::restarting;
    }
    if (run_ == ended_) {
        return State::restarting;
    }
    ended_.clear();
    if (!held_) {
        return restartRelay();
    }
    if (*held_ == usableServers(servers)) {
        return State::upToDate;
    }
    // Asked before the database is locked.
    return relay_.listens() ? deliver() : unheard();
}

// Who has just made its socket may not listen to it yet.
Service::State Service::unheard() const {
    return patience_ < kLookEvery ? State::busy : State::none;
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
    if (!relay_.listens()) {
        return unheard();
    }
    report_.problem("relay",
                    "it is not known what it holds, and its process is not found; start it again");
    return State::failed;
}

// Every step is remembered at once: whatever stops it, held_ is what the relay holds.
Service::State Service::deliver() {
    const WriteTransaction transaction(db_);
    const std::vector<Server> target = usableServers(readServers(db_));
    const std::vector<std::string> columns = readColumns(db_);
    const auto tell = [&](int operation, const Server &row) {
        return send(operation, row.id, operation == RAD_DB_INSERT ? "" : oldValuesOf(row, columns));
    };
    const size_t before = notices_;
    size_t same = 0;
    for (; same < std::min(held_->size(), target.size()); ++same) {
        Server &held = held_->at(same);
        if (held.id != target[same].id || held.host != target[same].host) {
            break;
        }
        if (held != target[same]) {
            if (!tell(RAD_DB_UPDATE, held)) {
                return undelivered();
            }
            held = target[same];
        }
    }
    for (; held_->size() > same; held_->pop_back()) {
        if (!tell(RAD_DB_DELETE, held_->back())) {
            return undelivered();
        }
    }
    for (; same < target.size(); ++same) {
        if (!tell(RAD_DB_INSERT, target[same])) {
            return undelivered();
        }
        held_->push_back(target[same]);
    }
    report_.event("relay", "has " + counted(target.size(), "server") + ": " +
                               counted(notices_ - before, "notice"));
    return State::upToDate;
}

bool Service::send(int operation, int64_t row, const std::string &oldValues) {
    if (relay_.run() != run_) {
        return false;
    }
    RadDbUpdateInfo notice{};
    notice.rowKey = kRowKey;
    notice.rowId = static_cast<int32_t>(row);
    notice.opCode = operation;
    std::strncpy(notice.tableName, kTable, sizeof(notice.tableName) - 1);
    ++notices_;
    const Relay::Answer answer = relay_.send(notice, oldValues);
    if (std::string run = relay_.run(); run != run_) {
        // What was meant for the one before may have come to this one.
        run_ = std::move(run);
        held_.reset();
    } else if (answer == Relay::Answer::unknown ||
               (answer == Relay::Answer::refused && operation != RAD_DB_INSERT)) {
        held_.reset();  // An update that fails may have freed the slot.
    }
    return held_ && answer == Relay::Answer::done;
}

Service::State Service::undelivered() {
    if (!held_ || relay_.run() != run_) {
        patience_ = kLookSoon;
        return State::busy;
    }
    report_.problem("relay",
                    "it refuses change notices or stopped answering; does it read the database " +
                        db_.file() + "?");
    return State::failed;
}

void Service::setState(State state) {
    relayDone_ = state == State::upToDate || state == State::restarting;
    if (state != State::failed && state != State::busy) {
        report_.putRight("relay");
    }
    if (std::exchange(state_, state) != state && state == State::none) {
        report_.event("relay", "none answers on the bus; it gets what it lacks once one does");
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
