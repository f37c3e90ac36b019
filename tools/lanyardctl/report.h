// What the program says: lines for people, or JSON documents, one a line, for programs.
#ifndef LANYARDCTL_REPORT_H
#define LANYARDCTL_REPORT_H

#include <iostream>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

namespace lanyardctl {

using Json = nlohmann::ordered_json;

class Report {
  public:
    explicit Report(bool json, std::ostream &out = std::cout, std::ostream &err = std::cerr)
        : json_(json), out_(out), err_(err) {}

    // The answer of a command that did what it was told to.
    void answer(const Json &document, const std::string &text) const;
    // The same where there is nothing more to tell, but perhaps something to put right.
    void done(const std::string &text, const std::optional<std::string> &problem = {}) const;
    // Something to think about, on standard error in either form; the answer says nothing of it.
    void warning(const std::string &text) const;
    // Why a command failed.
    void failure(const std::string &text) const;

    // What the service did.
    void event(const std::string &topic, const std::string &text) const;
    // Something that is wrong until it is put right: said once, and again when the text changes.
    void problem(const std::string &topic, const std::string &text);
    void putRight(const std::string &topic);

  private:
    void say(const Json &document, std::ostream &stream, const std::string &text) const;

    bool json_;
    std::ostream &out_;
    std::ostream &err_;
    std::map<std::string, std::string> problems_;
};

}  // namespace lanyardctl

#endif
