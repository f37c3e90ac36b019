#include "report.h"

#include <nlohmann/json.hpp>
#include <ostream>
#include <utility>

namespace lanyardctl {

// Text of a document that is no UTF-8 is shown with replacement characters.
void Report::say(const Json &document, std::ostream &stream, const std::string &text) const {
    if (json_) {
        out_ << document.dump(-1, ' ', false, Json::error_handler_t::replace) << std::endl;
    } else {
        stream << text << std::endl;
    }
}

void Report::answer(const Json &document, const std::string &text) const {
    say(document, out_, text);
}

void Report::done(const std::string &text, const std::optional<std::string> &problem) const {
    Json document = {{"ok", true}, {"done", text}};
    if (problem) {
        document["problem"] = *problem;
    }
    answer(document, text);
    if (problem && !json_) {
        err_ << "lanyardctl: PROBLEM: " << *problem << std::endl;
    }
}

void Report::warning(const std::string &text) const {
    err_ << "lanyardctl: WARNING: " << text << std::endl;
}

void Report::failure(const std::string &text) const {
    say({{"ok", false}, {"error", text}}, err_, "lanyardctl: " + text);
}

void Report::event(const std::string &topic, const std::string &text) const {
    say({{"topic", topic}, {"event", text}}, out_, topic + ": " + text);
}

void Report::problem(const std::string &topic, const std::string &text) {
    if (std::exchange(problems_[topic], text) != text) {
        say({{"topic", topic}, {"problem", text}}, err_,
            "lanyardctl: " + topic + ": PROBLEM: " + text);
    }
}

void Report::putRight(const std::string &topic) {
    if (problems_.erase(topic) != 0) {
        event(topic, "in order again");
    }
}

}  // namespace lanyardctl
