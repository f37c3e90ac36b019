#include "service.h"

#include <algorithm>
#include <set>
#include <utility>

#include <lanyard/radius/mgmt.h>

#include "journal.h"
#include "servers.h"

namespace lanyardctl {

namespace {

constexpr std::chrono::seconds kTryAgain{1};

constexpr const char *kConfFile = "/var/radius.conf";

std::string counted(size_t count, const std::string &what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

// As readHosts() yields them.
std::vector<std::string> hostsOf(const std::vector<Server> &servers) {
    std::set<std::string> hosts;
    for (const Server &server : servers) {
        if (server.host) {
            hosts.insert(*server.host);
        }
    }
    return {hosts.begin(), hosts.end()};
}

// Without the row that the service itself has put there.
std::vector<Server> readTable(const Database &db) {
    std::vector<Server> servers = readServers(db);
    std::erase_if(servers, [](const Server &server) { return server.id == kStandInRow; });
    return servers;
}

// What this run of the relay holds; none when that is not known, or is not to be relied on.
std::optional<Slots> heldBy(const std::string &instance, const RelayRecord &record, bool replay) {
    if (record.instance != instance) {
        return Slots{};  // It has just started, and nobody but the service sends it servers.
    }
    return record.known && !replay ? std::optional<Slots>(record.slots) : std::nullopt;
}

}  // namespace

Service::Service(const std::string &file, Relay &relay, Report &report)
    : db_(Database::open(file)), relay_(relay), report_(report) {
    checkJournal(db_);
    makeRelayRecord(db_);
    forgetAnswers(db_);
    dropStandIn();
}

void Service::look(Clock::time_point now) {
    try {
        const int64_t version = db_.dataVersion();
        const std::string instance = relay_.instance();
        const bool news = version != seenVersion_ || instance != seenInstance_;
        const bool again = now >= nextTry_;
        if (!news && !again) {
            return;
        }
        nextTry_ = now + kTryAgain;
        if (news || relayState_ != RelayState::upToDate || writeAgain_ ||
            lastChange(db_) > fileHas_) {
            work();
        }
        seenVersion_ = version;
        seenInstance_ = instance;
        report_.putRight("database");
    } catch (const Failure &failure) {
        report_.problem("database", failure.what());
    }
}

void Service::readAgain() {
    seenVersion_ = -1;
    writeAgain_ = true;
}

Service::RelayState Service::replay() {
    askForReplay(db_);
    const RelayState state = serveRelay();
    forgetAnswers(db_);
    return state;
}

void Service::work() {
    checkJournal(db_);
    dropStandIn();
    writeFile();
    serveRelay();
}

// A service that was killed may have left its row in the table.
void Service::dropStandIn() {
    if (standInRow(db_)) {
        removeStandInRow(db_);
    }
}

void Service::writeFile() {
    if (!writeAgain_ && lastChange(db_) <= fileHas_) {
        return;
    }
    const WriteTransaction transaction(db_);
    const std::vector<Change> changes = readChanges(db_, fileHas_);
    const std::vector<Server> servers = readServers(db_);
    // Without a change, an empty table is no reason to remove a file that somebody else wrote. Nor
    // is there one when somebody has emptied the table of changes since.
    if (changes.empty() && (!writeAgain_ || servers.empty())) {
        writeAgain_ = false;
        return;
    }
    if (const auto problem = fileProblemOf(servers)) {
        report_.problem("file", std::string(kConfFile) + " stays as it was: " + *problem);
        return;
    }
    const int operation = changes.empty() ? RAD_DB_UPDATE : changes.back().operation;
    if (radiusClientTblHandler(db_.file().c_str(), operation) != 0) {
        report_.problem("file", std::string(kConfFile) +
                                    " could not be written and may be incomplete; "
                                    "PAL_DEBUG_LEVELS=156 shows why");
        return;
    }
    fileHas_ = changes.empty() ? fileHas_ : changes.back().number;
    writeAgain_ = false;
    report_.putRight("file");
    report_.event("file", servers.empty() ? std::string(kConfFile) + " removed: no servers"
                                          : std::string(kConfFile) +
                                                " written: " + counted(servers.size(), "server"));
}

Service::RelayState Service::serveRelay() {
    const RelayState state = bringRelayUpToDate();
    const bool news = std::exchange(relayState_, state) != state;
    if (state == RelayState::failed) {
        report_.problem("relay",
                        "it refuses change notices or stopped answering; does it read the "
                        "database " +
                            db_.file() + "?");
        return state;
    }
    report_.putRight("relay");
    if (state == RelayState::none && news) {
        report_.event("relay", "none answers on the bus; it gets what it lacks once one does");
    }
    return state;
}

Service::RelayState Service::bringRelayUpToDate() {
    const std::string instance = relay_.instance();
    const RelayRecord before = readRelayRecord(db_);
    if (nothingToSend(before, instance)) {
        return RelayState::upToDate;
    }
    // Asked before the database is locked: a relay that waits for a RADIUS server answers late.
    if (!answers(relay_)) {
        if (replayAsked(db_)) {
            answerReplays(db_, kReplayNoRelay);
        }
        // A relay that is only late has to be told what has changed; any other gets everything.
        if (!before.known || instance != before.instance) {
            forget(lastChange(db_));
        }
        return RelayState::none;
    }
    markRelayUnknown(db_, instance);
    Outcome::Kind kind = deliver(before, instance);
    if (kind == Outcome::needsStandIn) {
        kind = deliver(before, instance);
    }
    return kind == Outcome::upToDate ? RelayState::upToDate : RelayState::failed;
}

Service::View Service::read(const RelayRecord &before, const std::string &instance) const {
    View view{.last = std::max(lastChange(db_), before.change),
              .table = readTable(db_),
              .target = {.instance = instance,
                         .columns = readColumns(db_),
                         .changes = readChanges(db_, before.change),
                         .hosts = readHosts(db_),
                         .standIn = standInRow(db_)},
              .replayAsked = replayAsked(db_)};
    view.target.servers = usableServers(view.table);
    return view;
}

bool Service::nothingToSend(const RelayRecord &before, const std::string &instance) {
    if (!before.known || before.instance != instance) {
        return false;
    }
    WriteTransaction transaction(db_);
    const View view = read(before, instance);
    const auto plan = makePlan(before.slots, view.target);
    if (view.replayAsked || !plan || !plan->steps.empty()) {
        return false;
    }
    reportRows(view.table);
    if (view.last != before.change) {
        record(view, before.slots);
    } else {
        forget(view.last);
    }
    transaction.commit();
    return true;
}

// One writer from reading the table to the last notice: the relay reads the rows that are read here.
Outcome::Kind Service::deliver(const RelayRecord &before, const std::string &instance) {
    WriteTransaction transaction(db_);
    const View view = read(before, instance);
    reportRows(view.table);
    const Outcome outcome =
        Delivery(relay_, view.target).run(heldBy(instance, before, view.replayAsked));
    if (outcome.kind == Outcome::needsStandIn) {
        addStandInRow(db_);
    } else {
        if (view.target.standIn) {
            removeStandInRow(db_);
        }
        if (view.replayAsked) {
            answerReplays(db_, outcome.kind == Outcome::upToDate
                                   ? std::nullopt
                                   : std::optional<int>(kReplayFailed));
        }
    }
    if (outcome.kind == Outcome::upToDate) {
        record(view, outcome.slots);
    }
    transaction.commit();
    if (outcome.kind == Outcome::upToDate && outcome.notices != 0) {
        report_.event("relay", "has " + counted(view.target.servers.size(), "server") +
                                   (outcome.afresh ? ", all of them afresh: " : ": ") +
                                   counted(static_cast<size_t>(outcome.notices), "notice"));
    }
    return outcome.kind;
}

// The relay has the table.
void Service::record(const View &view, const Slots &slots) {
    writeRelayRecord(
        db_,
        {.instance = view.target.instance, .known = true, .change = view.last, .slots = slots});
    if (view.target.hosts != hostsOf(view.table)) {
        setHosts(db_, view.table);
    }
    forget(view.last);
}

// Changes that the relay needs no more are dropped once they are in the file as well.
void Service::forget(int64_t upTo) {
    if (const int64_t done = std::min(upTo, fileHas_); done > 0) {
        forgetChanges(db_, done);
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
