// Why servers gave no valid answer, and what to look at next.
#ifndef LANYARDCTL_TROUBLE_H
#define LANYARDCTL_TROUBLE_H

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include <lanyard/radius/error.h>

#include "report.h"

namespace lanyardctl {

// One server that gave no valid answer.
struct Trouble {
    std::string what;
    std::string reason;
    std::string next;
};

// The servers that the last request of this thread asked, in order.
std::vector<RadLastError> askedServers();

// "127.0.0.1:1812", as the configuration names it.
std::string nameOf(const RadLastError &server);

// What a person would be told of one server, in one line.
std::string describe(const RadLastError &error);

// What is wrong with those of the servers that gave no valid answer. They are of one kind, RAD_SERVER_AUTH or
// RAD_SERVER_ACCT; a small question to each may tell more than the request did.
std::vector<Trouble> troublesOf(const std::vector<RadLastError> &servers, int kind);

// Lines for people, each after a newline.
std::string textOf(const std::vector<Trouble> &troubles);
// Adds them as "failed_servers", if there are any.
void addTo(Json &document, const std::vector<Trouble> &troubles);

}  // namespace lanyardctl

#endif
