#include "report.h"

#include <nlohmann/json.hpp>
#include <ostream>

namespace lanyardctl {

namespace {

void say(std::ostream &stream, const std::string &line) {
    stream << line << std::endl;
}

}  // namespace

std::string toLine(const Json &document) {
    return document.dump(-1, ' ', false, Json::error_handler_t::replace);
}

void Report::answer(const Json &document, const std::string &text) const {
    if (json_) {
        say(out_, toLine(document));
    } else {
        say(out_, text);
    }
}

void Report::done(const std::string &text, const std::optional<std::string> &problem) const {
    Json document = {{"ok", true}, {"done", text}};
    if (problem) {
        document["problem"] = *problem;
    }
    answer(document, text);
    if (problem && !json_) {
        say(err_, "lanyardctl: PROBLEM: " + *problem);
    }
}

void Report::failure(const std::string &text) const {
    if (json_) {
        say(out_, toLine({{"ok", false}, {"error", text}}));
    } else {
        say(err_, "lanyardctl: " + text);
    }
}

void Report::event(const std::string &topic, const std::string &text) const {
    if (json_) {
        say(out_, toLine({{"topic", topic}, {"event", text}}));
    } else {
        say(out_, topic + ": " + text);
    }
}

void Report::problem(const std::string &topic, const std::string &text) {
    if (problems_[topic] == text) {
        return;
    }
    problems_[topic] = text;
    if (json_) {
        say(out_, toLine({{"topic", topic}, {"problem", text}}));
    } else {
        say(err_, "lanyardctl: " + topic + ": PROBLEM: " + text);
    }
}

void Report::putRight(const std::string &topic) {
    if (problems_.erase(topic) != 0) {
        event(topic, "in order again");
    }
}

}  // namespace lanyardctl
