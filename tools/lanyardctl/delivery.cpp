#include "delivery.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include <lanyard/radius/mgmt.h>

namespace lanyardctl {

namespace {

constexpr const char *kTable = "radiusClient";
constexpr const char *kHostColumn = "authserver";

RadDbUpdateInfo noticeOf(const char *table, int operation, int64_t row) {
    RadDbUpdateInfo notice{};
    std::strncpy(notice.tableName, table, sizeof(notice.tableName) - 1);
    notice.rowKey = kRowKey;
    notice.rowId = static_cast<int32_t>(row);
    notice.opCode = operation;
    return notice;
}

// The first of the changes of a row, which has the row as the relay holds it. Null when the changes
// do not tell.
const Change *firstChange(const std::vector<Change> &changes, const Server &held) {
    const auto found = std::find_if(changes.begin(), changes.end(), [&held](const Change &change) {
        return change.row == held.id;
    });
    if (found == changes.end()) {
        return nullptr;
    }
    const std::string *host = found->oldValue(kHostColumn);
    return host && *host == held.host ? &*found : nullptr;
}

bool wasChanged(const std::vector<Change> &changes, int64_t row) {
    return std::any_of(changes.begin(), changes.end(),
                       [row](const Change &change) { return change.row == row; });
}

// The first slot that matches; null when none does.
template <typename Slots, typename Matches>
typename Slots::pointer findSlot(Slots &slots, const Matches &matches) {
    const auto found = std::find_if(slots.begin(), slots.end(), matches);
    return found == slots.end() ? nullptr : &*found;
}

const Server *findRow(const std::vector<Server> &servers, int64_t row) {
    const auto found = std::find_if(servers.begin(), servers.end(),
                                    [row](const Server &server) { return server.id == row; });
    return found == servers.end() ? nullptr : &*found;
}

}  // namespace

std::string layOut(const std::vector<std::string> &names, const std::vector<std::string> &values) {
    std::string texts;
    for (const auto *list : {&names, &values}) {
        for (const std::string &text : *list) {
            texts.append(text.c_str(), std::strlen(text.c_str()) + 1);
        }
    }
    return texts;
}

// A delete in a table that nobody handles changes nothing. With two of them a notice that a killed
// service has left on the bus is out of the way: senders take turns.
bool Delivery::answers() {
    const RadDbUpdateInfo question = noticeOf("", RAD_DB_DELETE, 0);
    return relay_.send(question, "") == 0 && (knows() || relay_.send(question, "") == 0);
}

bool Delivery::knows() {
    if (held_ && relay_.instance() != instance_) {
        held_.reset();
    }
    return held_.has_value();
}

void Delivery::forget() {
    held_.reset();
}

bool Delivery::send(const Step &step) {
    ++notices_;
    return relay_.send(noticeOf(kTable, step.operation, step.row), step.oldValues) == 0;
}

bool Delivery::sendUpdate(const Server &server, const std::string &oldHost) {
    std::vector<std::string> values(columns_.size());
    const auto host = std::find(columns_.begin(), columns_.end(), kHostColumn) - columns_.begin();
    values.at(static_cast<size_t>(host)) = oldHost;
    return send({RAD_DB_UPDATE, server.id, layOut(columns_, values)});
}

Outcome Delivery::deliver(const Target &target) {
    notices_ = 0;
    columns_ = target.columns;
    const int instance = relay_.instance();
    if (knows()) {
        Slots slots = *held_;
        const auto steps = plan(slots, target);
        held_.reset();
        if (steps) {
            const bool sent = std::all_of(steps->begin(), steps->end(),
                                          [this](const Step &step) { return send(step); });
            return sent ? done(slots, instance, false) : Outcome{};
        }
    }
    return deliverAfresh(target, instance);
}

Outcome Delivery::deliverAfresh(const Target &target, int instance) {
    Slots slots;
    if (target.servers.empty()) {
        if (target.hosts.empty()) {
            return done(slots, instance, true);
        }
        if (!target.standIn) {
            return {.kind = Outcome::needsStandIn};
        }
        const bool sent = restart({*target.standIn}, target.hosts) &&
                          send({RAD_DB_DELETE, target.standIn->id, ""});
        return sent ? done(slots, instance, true) : Outcome{};
    }
    if (!restart(target.servers, target.hosts)) {
        return {};
    }
    std::copy(target.servers.begin(), target.servers.end(), slots.begin());
    return done(slots, instance, true);
}

Outcome Delivery::done(const Slots &slots, int instance, bool afresh) {
    held_ = slots;
    instance_ = instance;
    return {.kind = Outcome::upToDate, .notices = notices_, .afresh = afresh};
}

// The steps from what the relay holds, and in `slots` what it holds after them. None when the changes
// do not explain the difference or the order would not be the table's.
std::optional<std::vector<Delivery::Step>> Delivery::plan(Slots &slots, const Target &target) {
    std::vector<Step> deletes;
    std::vector<Step> others;
    for (auto &slot : slots) {
        if (!slot) {
            continue;
        }
        const Server *server = findRow(target.servers, slot->id);
        if (server && server->host == slot->host) {
            continue;
        }
        const Change *change = firstChange(target.changes, *slot);
        if (!change) {
            return std::nullopt;
        }
        deletes.push_back({RAD_DB_DELETE, slot->id, layOut(change->names, change->oldValues)});
        slot.reset();
    }
    for (const Server &server : target.servers) {
        auto *slot =
            findSlot(slots, [&server](const auto &held) { return held && held->id == server.id; });
        if (slot) {
            if (**slot == server && !wasChanged(target.changes, server.id)) {
                continue;
            }
            const Change *change = firstChange(target.changes, **slot);
            if (!change) {
                return std::nullopt;
            }
            others.push_back({RAD_DB_UPDATE, server.id, layOut(change->names, change->oldValues)});
            slot->reset();
        } else {
            others.push_back({RAD_DB_INSERT, server.id, ""});
        }
        auto *free = findSlot(slots, [](const auto &held) { return !held; });
        if (!free) {
            return std::nullopt;
        }
        *free = server;
    }
    int64_t last = 0;
    for (const auto &slot : slots) {
        if (slot && std::exchange(last, slot->id) > slot->id) {
            return std::nullopt;
        }
    }
    deletes.insert(deletes.end(), others.begin(), others.end());
    return deletes;
}

// Inserts a row until all slots are in use. One refusal may also be a notice or an answer that went
// astray; two with an answer between them are not. None when there is no relay any more; else how
// many slots were in use before, at most.
std::optional<int> Delivery::fill(const Server &server) {
    const Step insert{RAD_DB_INSERT, server.id, ""};
    int added = 0;
    for (int refused = 0; refused < 2;) {
        if (send(insert)) {
            refused = 0;
            if (++added > RAD_SERVERS_MAX) {
                return std::nullopt;
            }
        } else {
            ++refused;
            if (!answers()) {
                return std::nullopt;
            }
        }
    }
    return RAD_SERVERS_MAX - added;
}

bool Delivery::restart(const std::vector<Server> &servers, const std::vector<std::string> &hosts) {
    const Server &first = servers.front();
    const std::optional<int> others = fill(first);
    if (!others) {
        return false;
    }
    for (const std::string &host : hosts) {
        for (int i = 0; host != first.host && i < *others; ++i) {
            if (!sendUpdate(first, host)) {
                return false;
            }
        }
    }
    for (int i = 1; i < RAD_SERVERS_MAX; ++i) {
        if (!sendUpdate(first, *first.host) || !send({RAD_DB_DELETE, first.id, ""})) {
            return false;
        }
    }
    return sendUpdate(first, *first.host) &&
           std::all_of(servers.begin() + 1, servers.end(), [this](const Server &server) {
               return send({RAD_DB_INSERT, server.id, ""});
           });
}

}  // namespace lanyardctl
