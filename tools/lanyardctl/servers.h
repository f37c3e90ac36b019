// The authentication servers of the table "radiusClient", and what the rest of the system can carry
// of them.
//
// A server ends up as text, "host:port:timeout:retries:secret", in a list separated by commas and
// blanks: on one line of the configuration file, and in the relay, which builds that text again from
// the row. So a row is usable when that text reads back as what the row says.
#ifndef LANYARDCTL_SERVERS_H
#define LANYARDCTL_SERVERS_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "database.h"

namespace lanyardctl {

// One row, as it stands: any program may have written it.
struct Server {
    int64_t id = 0;
    std::optional<std::string> host = {};
    std::optional<std::string> port = {};
    std::optional<std::string> secret = {};
    std::optional<std::string> timeout = {};
    std::optional<std::string> retries = {};

    bool operator==(const Server &) const = default;
};

// The columns that matter, and where their values are.
inline constexpr std::array<std::pair<const char *, std::optional<std::string> Server::*>, 5>
    kServerColumns = {{{"authserver", &Server::host},
                       {"authport", &Server::port},
                       {"authsecret", &Server::secret},
                       {"authtimeout", &Server::timeout},
                       {"authretries", &Server::retries}}};

// Makes the tables that are missing and drops what earlier versions kept beside them. A dictionary
// replaces the one in "environment"; without one that is left alone, or set to kDefaultDictionary
// where there is none.
inline constexpr const char *kDefaultDictionary = "/nexa2.0/etc/radius.dict";
void prepareDatabase(const Database &db, const std::optional<std::string> &dictionary);

// The dictionary in "environment"; "" when none is named.
std::string readDictionary(const Database &db);

// Whether a text is digits alone, and a number as the library prints it, without leading zeros; any
// other text is as it is.
bool isNumber(const std::string &text);
std::string canonical(const std::string &text);

// All rows in the order of their ids, which is the order in which servers are asked.
std::vector<Server> readServers(const Database &db);

// All columns of the table in their order.
std::vector<std::string> readColumns(const Database &db);

// A reason why a row cannot be used by itself; none when it can.
std::optional<std::string> problemOf(const Server &server);

// The same for each row of the whole table, where host names may also stand twice, and rows beyond
// the eighth find no place.
std::vector<std::optional<std::string>> problemsOf(const std::vector<Server> &servers);

// The rows without a problem: what the relay is to hold.
std::vector<Server> usableServers(const std::vector<Server> &servers);

// A reason why the configuration file cannot carry the table; none when it can. Unlike the relay, it
// can carry a host name twice.
std::optional<std::string> fileProblemOf(const std::vector<Server> &servers);

// The configuration file as the library writes it from a table that it can carry.
std::string confFileOf(const std::vector<Server> &servers);

// A reason why a server cannot be put into the table beside the others, one of which it may replace.
std::optional<std::string> editProblemOf(const std::vector<Server> &servers, const Server &edited);

void insertServer(const Database &db, Server &server);
void updateServer(const Database &db, const Server &server);
void deleteServer(const Database &db, int64_t id);

}  // namespace lanyardctl

#endif
