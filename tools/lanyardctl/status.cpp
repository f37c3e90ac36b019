#include "status.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include <lanyard/radius/relay.h>

#include "bus.h"
#include "failure.h"
#include "table.h"

namespace lanyardctl {

namespace {

constexpr size_t kAnswerMax = 16384;

// What the relay counts for each server.
struct RelayCount {
    const char *heading;
    const char *name;  // in its answer
};
constexpr std::array<RelayCount, 10> kRelayCounts = {{{"PENDING", "pending"},
                                                      {"REQUESTS", "requests"},
                                                      {"RESENT", "retransmissions"},
                                                      {"TIMEOUTS", "timeouts"},
                                                      {"ACCEPTS", "accepts"},
                                                      {"REJECTS", "rejects"},
                                                      {"CHALLENGES", "challenges"},
                                                      {"BAD-AUTH", "bad_authenticators"},
                                                      {"STRAYS", "strays"},
                                                      {"MALFORMED", "malformed"}}};

uint64_t numberIn(const Json &object, const char *name) {
    const Json &number = object.at(name);
    if (!number.is_number_unsigned()) {
        throw Failure("the relay's answer cannot be read: '" + std::string(name) +
                      "' is no whole number");
    }
    return number.get<uint64_t>();
}

std::string textIn(const Json &object, const char *name) {
    return std::to_string(numberIn(object, name));
}

// Of a round trip, of which there may have been none.
std::string millisecondsIn(const Json &object, const char *name) {
    constexpr double kMicroseconds = 1000;
    const uint64_t time = numberIn(object, name);
    std::array<char, 32> text{};
    (void)std::snprintf(text.data(), text.size(), "%.1f",
                        static_cast<double>(time) / kMicroseconds);
    return time == 0 ? "-" : text.data();
}

Line rowOf(const Json &server) {
    const std::string state = server.at("alive").get<bool>()
                                  ? "alive"
                                  : "dead for " + textIn(server, "dead_seconds") + " s";
    Line line = {shown(server.at("host").get<std::string>()) + ":" + textIn(server, "port"), state};
    for (const RelayCount &count : kRelayCounts) {
        line.push_back(textIn(server, count.name));
    }
    line.push_back(millisecondsIn(server, "median_us"));
    line.push_back(millisecondsIn(server, "p95_us"));
    return line;
}

std::string textOf(const Json &status) {
    std::vector<Line> lines = {{"SERVER", "STATE"}};
    for (const RelayCount &count : kRelayCounts) {
        lines.front().emplace_back(count.heading);
    }
    lines.front().insert(lines.front().end(), {"MEDIAN-MS", "P95-MS"});
    for (const Json &server : status.at("servers").get_ref<const Json::array_t &>()) {
        lines.push_back(rowOf(server));
    }
    return "conversations " + textIn(status, "conversations") + ", in flight " +
           textIn(status, "in_flight") + ", limit " + textIn(status, "limit") + "\n" +
           (lines.size() == 1 ? "no servers" : asTable(lines));
}

std::string askRelay() {
    // For a relay that takes the question for a record: one without a packet is dropped.
    constexpr RadEapXbusMsg kNothing{};
    Bus bus;
    bus.joinAsClient([](uint32_t, std::string_view) { return -1; });
    if (!BusRelay(bus).isThere()) {
        throw Failure("no relay answers on the bus");
    }
    std::string answer(kAnswerMax, '\0');
    if (bus.call(RAD_EAP_MODULE, RAD_EAP_CMD_STATUS,
                 {reinterpret_cast<const char *>(&kNothing), sizeof(kNothing)}, &answer) != 0) {
        throw Failure(
            "the relay does not answer; one with --in-flight 1 may wait for a RADIUS server");
    }
    if (answer.empty() || answer.front() == '\0') {
        throw Failure("the relay tells no status; one with --in-flight 1 has none");
    }
    return answer;
}

}  // namespace

void tellStatus(const Report &report) {
    try {
        const Json status = Json::parse(askRelay());
        const std::string text = textOf(status);
        Json document = {{"ok", true}};
        document.update(status);
        report.answer(document, text);
    } catch (const Json::exception &error) {
        throw Failure(std::string("the relay's answer cannot be read: ") + error.what());
    }
}

}  // namespace lanyardctl
