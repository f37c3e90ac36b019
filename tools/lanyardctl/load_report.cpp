#include "load_report.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <utility>

#include "inquiry.h"
#include "progress.h"
#include "style.h"
#include "table.h"

namespace lanyardctl {

namespace {

constexpr std::array<int, 4> kPercentiles = {50, 90, 95, 99};

// What the library counts for each server, named as in the relay's status.
struct ServerCount {
    const char *heading;
    const char *name;
    uint64_t RadServerStatus::*number;
};
constexpr auto kServerCounts = std::to_array<ServerCount>({
    {"REQUESTS", "requests", &RadServerStatus::requests},
    {"RESENT", "retransmissions", &RadServerStatus::retransmissions},
    {"TIMEOUTS", "timeouts", &RadServerStatus::timeouts},
    {"BAD-AUTH", "bad_authenticators", &RadServerStatus::badAuthenticators},
    {"STRAYS", "strays", &RadServerStatus::strays},
    {"MALFORMED", "malformed", &RadServerStatus::malformed},
});

std::string hostAndPort(const RadServerStatus &server) {
    return std::string(server.host) + ":" + std::to_string(server.port);
}

double inMilliseconds(uint64_t microseconds) {
    return static_cast<double>(microseconds) / 1000;
}

std::string inTenths(double number) {
    std::array<char, 32> text{};
    (void)std::snprintf(text.data(), text.size(), "%.1f", number);
    return text.data();
}

// A second, with a valid answer or without.
uint64_t rateOf(const LoadFigures &figures) {
    return figures.seconds > 0 ? static_cast<uint64_t>(std::llround(
                                     static_cast<double>(figures.ended()) / figures.seconds))
                               : 0;
}

std::string headingOf(const LoadPlan &plan, const LoadFigures &figures) {
    const uint64_t ended = figures.ended();
    const size_t users = plan.users.size();
    return std::to_string(ended) +
           (ended == plan.logins ? "" : " of " + std::to_string(plan.logins)) + " logins of " +
           (users == 1 ? shown(plan.users.front().name) : std::to_string(users) + " users") + " (" +
           plan.method.shown + "), " + std::to_string(plan.atOnce) + " at once, in " +
           inTenths(figures.seconds) + " s: " + std::to_string(rateOf(figures)) + " a second";
}

std::string outcomesOf(const LoadFigures &figures) {
    std::string text;
    const auto add = [&](Tone tone, const std::string &word, uint64_t count) {
        if (count > 0) {
            const double share =
                static_cast<double>(count) / static_cast<double>(figures.ended() + figures.waiting);
            text += "\n  " + toned(tone, word) + ": " + std::to_string(count) + " (" +
                    inTenths(100 * share) + " %)";
        }
    };
    add(Tone::kGood, "accepted", figures.accepted);
    add(Tone::kBad, "rejected", figures.rejected);
    add(Tone::kDoubtful, "challenged", figures.challenged);
    for (const auto &[reason, count] : figures.failures) {
        add(Tone::kBad, reason, count);
    }
    add(Tone::kDoubtful, "given up while they waited", figures.waiting);
    return text;
}

std::string timesOf(const Histogram &times) {
    std::string text = "\n\nTime until the answer:" + asBars(times.rows()) + "\n  shortest " +
                       asMilliseconds(inMilliseconds(times.least()));
    for (const int percent : kPercentiles) {
        text += ", " + std::to_string(percent) + " % " +
                asMilliseconds(inMilliseconds(times.percentile(percent)));
    }
    return text + ", longest " + asMilliseconds(inMilliseconds(times.most()));
}

std::string serversOf(const std::vector<RadServerStatus> &servers) {
    std::vector<Line> lines = {{"SERVER"}};
    for (const ServerCount &count : kServerCounts) {
        lines.front().emplace_back(count.heading);
    }
    for (const RadServerStatus &server : servers) {
        Line &line = lines.emplace_back(Line{hostAndPort(server)});
        for (const ServerCount &count : kServerCounts) {
            line.push_back(std::to_string(server.*count.number));
        }
    }
    return servers.empty() ? "" : "\n\n" + asTable(lines);
}

Json timesAsJson(const Histogram &times) {
    Json rows = Json::array();
    for (const Histogram::Row &row : times.rows()) {
        rows.push_back({{"from", inMilliseconds(row.from)},
                        {"to", inMilliseconds(row.to)},
                        {"count", row.count}});
    }
    Json document = {{"shortest", inMilliseconds(times.least())}};
    for (const int percent : kPercentiles) {
        document["p" + std::to_string(percent)] = inMilliseconds(times.percentile(percent));
    }
    document["longest"] = inMilliseconds(times.most());
    document["histogram"] = rows;
    return document;
}

}  // namespace

ExitCode exitCodeOf(const LoadFigures &figures) {
    return figures.ended() == 0                  ? kFailed
           : figures.failed() > 0                ? kNoAnswer
           : figures.accepted == figures.ended() ? kDone
                                                 : kNo;
}

std::string asText(const LoadPlan &plan, const LoadFigures &figures,
                   const std::vector<RadServerStatus> &servers) {
    return headingOf(plan, figures) + outcomesOf(figures) +
           (figures.times.count() == 0 ? "" : timesOf(figures.times)) + serversOf(servers);
}

Json asDocument(const LoadPlan &plan, const LoadFigures &figures,
                const std::vector<RadServerStatus> &servers) {
    Json document = {{"ok", exitCodeOf(figures) == kDone},
                     {"method", plan.method.name},
                     {"users", plan.users.size()},
                     {"at_once", plan.atOnce},
                     {"planned", plan.logins},
                     {"logins", figures.ended()},
                     {"seconds", inMicrosecondSteps(figures.seconds)},
                     {"per_second", rateOf(figures)},
                     {"accepted", figures.accepted},
                     {"rejected", figures.rejected},
                     {"challenged", figures.challenged},
                     {"given_up", figures.waiting},
                     {"failures", figures.failures}};
    if (figures.times.count() > 0) {
        document["milliseconds"] = timesAsJson(figures.times);
    }
    Json &list = document["servers"] = Json::array();
    for (const RadServerStatus &server : servers) {
        Json &row = list.emplace_back(Json{{"server", hostAndPort(server)}});
        for (const ServerCount &count : kServerCounts) {
            row[count.name] = server.*count.number;
        }
    }
    return document;
}

std::string progressOf(const LoadPlan &plan, const LoadFigures &figures) {
    constexpr size_t kPlaces = 40;
    const uint64_t failed = figures.failed();
    return asProgress(figures.ended(), plan.logins, kPlaces) + ", " +
           std::to_string(rateOf(figures)) + " a second" +
           (failed == 0 ? "" : ", " + std::to_string(failed) + " without an answer");
}

}  // namespace lanyardctl
