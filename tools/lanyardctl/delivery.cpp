#include "delivery.h"

#include <algorithm>
#include <cstring>
#include <map>
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
const Change *firstChange(const std::vector<Change> &changes, const Slot &held) {
    const auto found = std::find_if(changes.begin(), changes.end(), [&held](const Change &change) {
        return change.row == held.row;
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
template <typename Matches>
std::optional<Slot> *findSlot(Slots &slots, const Matches &matches) {
    const auto found = std::find_if(slots.begin(), slots.end(), matches);
    return found == slots.end() ? nullptr : &*found;
}

const Server *findRow(const std::vector<Server> &servers, int64_t row) {
    const auto found = std::find_if(servers.begin(), servers.end(),
                                    [row](const Server &server) { return server.id == row; });
    return found == servers.end() ? nullptr : &*found;
}

// A row of the table as old values.
std::string oldValuesOf(const Server &server, const std::vector<std::string> &columns) {
    const std::map<std::string, std::optional<std::string>> known = {
        {kHostColumn, server.host},
        {"authport", server.port},
        {"authsecret", server.secret},
        {"authtimeout", server.timeout},
        {"authretries", server.retries}};
    std::vector<std::string> values;
    for (const std::string &column : columns) {
        const auto found = known.find(column);
        values.push_back(found == known.end() ? "" : found->second.value_or(""));
    }
    return layOut(columns, values);
}

bool isInOrder(const Slots &slots) {
    int64_t last = 0;
    return std::all_of(slots.begin(), slots.end(), [&last](const auto &slot) {
        return !slot || std::exchange(last, slot->row) < slot->row;
    });
}

bool planDeletes(Plan &plan, const Target &target) {
    for (auto &slot : plan.slots) {
        const Server *server = slot ? findRow(target.servers, slot->row) : nullptr;
        if (!slot || (server && server->host == slot->host)) {
            continue;
        }
        const Change *change = firstChange(target.changes, *slot);
        if (!change) {
            return false;
        }
        plan.steps.push_back({RAD_DB_DELETE, slot->row, layOut(change->names, change->oldValues)});
        slot.reset();
    }
    return true;
}

bool planOthers(Plan &plan, const Target &target, bool moveUp) {
    const auto isFree = [](const auto &slot) { return !slot; };
    for (const Server &server : target.servers) {
        auto *slot = findSlot(
            plan.slots, [&server](const auto &held) { return held && held->row == server.id; });
        if (!slot) {
            plan.steps.push_back({RAD_DB_INSERT, server.id, ""});
        } else {
            const bool changed = wasChanged(target.changes, server.id);
            const auto *free = findSlot(plan.slots, isFree);
            if (!changed && !(moveUp && free && free < slot)) {
                continue;
            }
            const Change *change = firstChange(target.changes, **slot);
            if (changed && !change) {
                return false;
            }
            plan.steps.push_back({RAD_DB_UPDATE, server.id,
                                  change ? layOut(change->names, change->oldValues)
                                         : oldValuesOf(server, target.columns)});
            slot->reset();
        }
        auto *free = findSlot(plan.slots, isFree);
        if (!free) {
            return false;
        }
        *free = Slot{server.id, server.host.value_or("")};
    }
    return true;
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

std::optional<Plan> makePlan(const Slots &held, const Target &target) {
    for (const bool moveUp : {false, true}) {
        Plan plan{.slots = held};
        if (planDeletes(plan, target) && planOthers(plan, target, moveUp) &&
            isInOrder(plan.slots)) {
            return plan;
        }
    }
    return std::nullopt;
}

// A delete in a table that nobody handles changes nothing.
bool answers(Relay &relay) {
    return relay.send(noticeOf("", RAD_DB_DELETE, 0), "") == 0;
}

Outcome Delivery::run(const std::optional<Slots> &held) {
    const auto plan = held ? makePlan(*held, target_) : std::nullopt;
    if (!plan) {
        return runAfresh();
    }
    return sendAll(plan->steps) ? done(plan->slots, false) : Outcome{};
}

// A run of the relay that has begun meanwhile must not get what was meant for the one before.
bool Delivery::send(const Step &step) {
    ++notices_;
    return relay_.instance() == target_.instance &&
           relay_.send(noticeOf(kTable, step.operation, step.row), step.oldValues) == 0;
}

bool Delivery::sendAll(const std::vector<Step> &steps) {
    return std::all_of(steps.begin(), steps.end(), [this](const Step &step) { return send(step); });
}

bool Delivery::sendUpdate(const Server &server, const std::string &oldHost) {
    return send({RAD_DB_UPDATE, server.id, oldValuesOf({.host = oldHost}, target_.columns)});
}

Outcome Delivery::runAfresh() {
    const std::vector<Server> &servers = target_.servers;
    Slots slots;
    if (servers.empty()) {
        if (target_.hosts.empty()) {
            return done(slots, true);
        }
        if (!target_.standIn) {
            return {.kind = Outcome::needsStandIn};
        }
        const bool sent =
            restart({*target_.standIn}) && send({RAD_DB_DELETE, target_.standIn->id, ""});
        return sent ? done(slots, true) : Outcome{};
    }
    if (!restart(servers)) {
        return {};
    }
    std::transform(servers.begin(), servers.end(), slots.begin(), [](const Server &server) {
        return Slot{server.id, server.host.value_or("")};
    });
    return done(slots, true);
}

Outcome Delivery::done(const Slots &slots, bool afresh) const {
    return {.kind = Outcome::upToDate, .slots = slots, .notices = notices_, .afresh = afresh};
}

// Inserts a row until all slots are in use. One refusal may also be a notice or an answer that went
// astray; two with an answer between them are not. None when there is no relay any more; else how
// many slots were in use before, at most.
std::optional<int> Delivery::fill(const Server &server) {
    const Step insert{RAD_DB_INSERT, server.id, ""};
    int added = 0;
    // The second answer: a notice that a killed service has left on the bus is out of the way, for
    // senders take turns.
    if (!answers(relay_)) {
        return std::nullopt;
    }
    for (int refused = 0; refused < 2;) {
        if (send(insert)) {
            refused = 0;
            if (++added > RAD_SERVERS_MAX) {
                return std::nullopt;
            }
        } else {
            ++refused;
            if (!answers(relay_)) {
                return std::nullopt;
            }
        }
    }
    return RAD_SERVERS_MAX - added;
}

bool Delivery::restart(const std::vector<Server> &servers) {
    const Server &first = servers.front();
    const std::optional<int> others = fill(first);
    if (!others) {
        return false;
    }
    for (const std::string &host : target_.hosts) {
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
