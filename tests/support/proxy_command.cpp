#include "tests/support/proxy_command.h"

#include <chrono>
#include <cmath>
#include <functional>
#include <map>
#include <stdexcept>

namespace lanyard::test {
namespace {

using Setter = std::function<void(const std::string &value, ProxySettings &settings)>;

constexpr double kFloodMost = 10000;

double number(const std::string &text, double max) {
    size_t used = 0;
    double value = -1;
    try {
        value = std::stod(text, &used);
    } catch (const std::exception &) {
        used = 0;
    }
    if (used == 0 || used != text.size() || !(value >= 0 && value <= max)) {
        throw std::invalid_argument("not a number of 0 to " + std::to_string(max) + ": " + text);
    }
    return value;
}

std::chrono::microseconds delay(const std::string &text) {
    constexpr double kMost = 60000;
    return std::chrono::microseconds(std::llround(number(text, kMost) * 1000));
}

bool isOn(const std::string &text) {
    if (text != "on" && text != "off") {
        throw std::invalid_argument("neither on nor off: " + text);
    }
    return text == "on";
}

Setter probability(double LinkFaults::*fault) {
    return [fault](const std::string &value, ProxySettings &settings) {
        settings.faults.*fault = number(value, 1);
    };
}

Setter state(ServerState on) {
    return [on](const std::string &value, ProxySettings &settings) {
        settings.state = isOn(value) ? on : ServerState::kAlive;
    };
}

Forgery forgery(const std::string &text) {
    static const std::map<std::string, Forgery> kKinds = {{"none", Forgery::kNone},
                                                          {"junk", Forgery::kJunk},
                                                          {"accept", Forgery::kAccept},
                                                          {"digest", Forgery::kDigest},
                                                          {"foreign", Forgery::kForeign}};
    const auto kind = kKinds.find(text);
    if (kind == kKinds.end()) {
        throw std::invalid_argument("no kind of forgery: " + text);
    }
    return kind->second;
}

const std::map<std::string, Setter> &setters() {
    static const std::map<std::string, Setter> kSetters = {
        {"delay",
         [](const std::string &value, ProxySettings &settings) {
             settings.toServer = settings.toClient = delay(value);
         }},
        {"delay-to-server", [](const std::string &value,
                               ProxySettings &settings) { settings.toServer = delay(value); }},
        {"delay-to-client", [](const std::string &value,
                               ProxySettings &settings) { settings.toClient = delay(value); }},
        {"loss", probability(&LinkFaults::loss)},
        {"duplicate", probability(&LinkFaults::duplicate)},
        {"reorder", probability(&LinkFaults::reorder)},
        {"truncate", probability(&LinkFaults::truncate)},
        {"corrupt", probability(&LinkFaults::corrupt)},
        {"forge", [](const std::string &value,
                     ProxySettings &settings) { settings.forgery = forgery(value); }},
        {"forged-share", [](const std::string &value,
                            ProxySettings &settings) { settings.forgedShare = number(value, 1); }},
        {"flood",
         [](const std::string &value, ProxySettings &settings) {
             settings.flood = static_cast<int>(number(value, kFloodMost));
         }},
        {"ignore",
         [](const std::string &value, ProxySettings &settings) { settings.ignoredUser = value; }},
        {"dead", state(ServerState::kSilent)},
        {"refused", state(ServerState::kRefused)},
    };
    return kSetters;
}

}  // namespace

std::vector<std::string> proxyCommands() {
    std::vector<std::string> names;
    for (const auto &setter : setters()) {
        names.push_back(setter.first);
    }
    return names;
}

void applyProxyCommand(const std::string &name, const std::string &value, ProxySettings &settings) {
    const auto setter = setters().find(name);
    if (setter == setters().end()) {
        throw std::invalid_argument("no such command: " + name);
    }
    setter->second(value, settings);
}

void applyProxyCommand(const std::string &line, ProxySettings &settings) {
    const size_t blank = line.find(' ');
    applyProxyCommand(line.substr(0, blank),
                      blank == std::string::npos ? "" : line.substr(blank + 1), settings);
}

}  // namespace lanyard::test
