#include "tools/pnac_wired/status.h"

#include <array>
#include <ctime>
#include <nlohmann/json.hpp>

namespace lanyard::pnac {
namespace {

using Json = nlohmann::ordered_json;

std::string_view nameOf(Status::AwaitedBy awaited) {
    switch (awaited) {
        case Status::AwaitedBy::kIdentity:
            return "identity";
        case Status::AwaitedBy::kRoom:
            return "room at the relay";
        case Status::AwaitedBy::kRelay:
            return "relay";
        default:
            return "supplicant";
    }
}

// Builds the lists of the object, until it is large enough.
class StatusObject {
  public:
    explicit StatusObject(const StatusContext &context)
        : context_(context),
          object_({{"interface", context.interface}, {"address", toText(context.address)}}) {}

    // "2026-01-31T12:00:00Z"
    std::string wallTime(Time time) const {
        const auto offset = std::chrono::floor<std::chrono::seconds>(time - context_.now);
        const auto wall = static_cast<time_t>(context_.wallNow + offset.count());
        tm parts = {};
        std::array<char, 64> text = {};
        if (gmtime_r(&wall, &parts) == nullptr) {
            return "";
        }
        return {text.data(), strftime(text.data(), text.size(), "%FT%TZ", &parts)};
    }

    double secondsSince(Time time) const {
        return std::chrono::duration<double>(context_.now - time).count();
    }

    template <typename Entry, typename Convert>
    void add(const char *name, const std::vector<Entry> &entries, Convert convert) {
        Json list = Json::array();
        for (const Entry &entry : entries) {
            Json converted = convert(entry);
            const size_t size = lineOf(converted).size();
            if (size_ + size > kStatusMax) {
                ++leftOut_;
                continue;
            }
            size_ += size;
            list.push_back(std::move(converted));
        }
        object_[name] = std::move(list);
    }

    std::string finish(const Counters &counters, const ProgramCounters &more) {
        object_["left_out"] = leftOut_;
        object_["counters"] = Json::object();
        forEachCounter(counters, more, [this](const char *name, uint64_t value) {
            object_["counters"][name] = value;
        });
        return lineOf(object_);
    }

    static void addIdentity(Json &entry, ByteView identity) {
        entry["identity"] = asString(identity);
        entry["identity_hex"] = toHex(identity);
    }

    static std::string asString(ByteView octets) { return {octets.begin(), octets.end()}; }

  private:
    static std::string lineOf(const Json &object) {
        return object.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
    }

    const StatusContext &context_;
    Json object_;
    size_t size_ = 0;
    size_t leftOut_ = 0;
};

// Text of the object that is shown to a person.
std::string shown(const Json &entry, const char *name) {
    const auto found = entry.find(name);
    if (found == entry.end() || !found->is_string()) {
        return "";
    }
    const auto text = found->get<std::string>();
    return escaped({reinterpret_cast<const uint8_t *>(text.data()), text.size()});
}

// The identity as events have it.
std::string shownIdentity(const Json &entry) {
    const std::string hex = entry.value("identity_hex", "");
    Bytes identity;
    for (size_t at = 0; at + 1 < hex.size(); at += 2) {
        identity.push_back(static_cast<uint8_t>(std::stoul(hex.substr(at, 2), nullptr, 16)));
    }
    return '"' + escaped(identity) + '"';
}

std::string row(const std::string &address, const std::string &state, const std::string &since,
                const std::string &until, const std::string &vlan, const std::string &identity) {
    std::array<char, 128> text = {};
    (void)std::snprintf(text.data(), text.size(), "%-17s  %-28s  %-20s  %-20s  %-8s  ",
                        address.c_str(), state.c_str(), since.c_str(), until.c_str(), vlan.c_str());
    std::string line = text.data() + identity;
    line.erase(line.find_last_not_of(' ') + 1);
    return line + '\n';
}

std::string tableOf(const Json &status) {
    const Json &sessions = status.at("sessions");
    const Json &attempts = status.at("attempts");
    const Json &quiet = status.at("quiet");
    std::string text = shown(status, "interface") + ", " + shown(status, "address") + ": " +
                       std::to_string(sessions.size()) + " authorized, " +
                       std::to_string(attempts.size()) + " logging in, " +
                       std::to_string(quiet.size()) + " quiet";
    if (const auto leftOut = status.at("left_out").get<size_t>(); leftOut > 0) {
        text += ", " + std::to_string(leftOut) + " left out";
    }
    text += '\n';
    if (sessions.size() + attempts.size() + quiet.size() > 0) {
        text += row("ADDRESS", "STATE", "SINCE", "UNTIL", "VLAN", "IDENTITY");
    }
    for (const Json &entry : sessions) {
        const std::string then = shown(entry, "then");
        text += row(shown(entry, "address"), then.empty() ? "authorized" : "authorized, " + then,
                    shown(entry, "since"), shown(entry, "until"), shown(entry, "vlan"),
                    shownIdentity(entry));
    }
    for (const Json &entry : attempts) {
        text += row(shown(entry, "address"), "awaits " + shown(entry, "awaits"),
                    shown(entry, "since"), "", "", shownIdentity(entry));
    }
    for (const Json &entry : quiet) {
        text += row(shown(entry, "address"), "quiet", "", shown(entry, "until"), "", "");
    }
    text += "counters";
    for (const auto &[name, value] : status.at("counters").items()) {
        text += ' ' + name + '=' + value.dump();
    }
    return text + '\n';
}

}  // namespace

std::string statusLine(const StatusContext &context, const Status &status, const Counters &counters,
                       const ProgramCounters &more) {
    StatusObject object(context);
    object.add("sessions", status.sessions, [&](const Status::Session &session) {
        Json entry = {{"address", toText(session.address)}};
        StatusObject::addIdentity(entry, session.identity);
        entry["since"] = object.wallTime(session.since);
        entry["seconds"] = object.secondsSince(session.since);
        if (session.until) {
            entry["until"] = object.wallTime(*session.until);
            entry["then"] = nameOf(session.rule);
        }
        if (!session.vlan.empty()) {
            entry["vlan"] = StatusObject::asString(session.vlan);
        }
        return entry;
    });
    object.add("attempts", status.attempts, [&](const Status::Attempt &attempt) {
        Json entry = {{"address", toText(attempt.address)}};
        StatusObject::addIdentity(entry, attempt.identity);
        entry["since"] = object.wallTime(attempt.since);
        entry["seconds"] = object.secondsSince(attempt.since);
        entry["awaits"] = nameOf(attempt.awaited);
        return entry;
    });
    object.add("quiet", status.quiet, [&](const Status::Quiet &quiet) {
        return Json({{"address", toText(quiet.address)}, {"until", object.wallTime(quiet.until)}});
    });
    return object.finish(counters, more);
}

std::optional<std::string> statusTable(const std::string &line) {
    try {
        return tableOf(Json::parse(line));
    } catch (const std::exception &) {
        return std::nullopt;
    }
}

}  // namespace lanyard::pnac
