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
#include <vector>

#include "database.h"

namespace lanyardctl {

using Text = std::optional<std::string>;
using Problem = std::optional<std::string>;

// One row, as it stands: any program may have written it.
struct Server {
    int64_t id = 0;
    Text host = {};
    Text port = {};
    Text secret = {};
    Text timeout = {};
    Text retries = {};

    bool operator==(const Server &) const = default;
};

// The columns that matter, in the order of a server's text.
struct Column {
    Text Server::*field;
    const char *column;  // in the table
    const char *name;    // in options, JSON and headings
    const char *word;    // in messages
    const char *type;    // of its option
    const char *help;
    int min = 0;
    int max = 0;                     // 0 for what is no number
    const char *standard = nullptr;  // what a new server gets; null for none

    [[nodiscard]] bool isNumber() const { return max != 0; }
};

inline constexpr std::array<Column, 5> kServerColumns = {{
    {&Server::host, "authserver", "host", "host", "HOST", "name or dotted IPv4 address"},
    {&Server::port, "authport", "port", "port", "PORT",
     "UDP port, 0 to 65535; 0 for the port of 'radius' in the services database", 0, 65535, "1812"},
    {&Server::timeout, "authtimeout", "timeout", "time-out", "SECONDS",
     "seconds to wait for an answer, 1 to 300", 1, 300, "3"},
    {&Server::retries, "authretries", "retries", "retries", "COUNT",
     "sends after the first one, 0 to 20", 0, 20, "1"},
    {&Server::secret, "authsecret", "secret", "secret", "SECRET", "shared secret"},
}};

// Makes the tables that are missing and drops what earlier versions kept beside them. A dictionary
// replaces the one in "environment"; without one that is left alone, or set to kDefaultDictionary
// where there is none.
inline constexpr const char *kDefaultDictionary = LANYARD_DEFAULT_DICTIONARY;
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
Problem problemOf(const Server &server);

// The same for each row of the whole table, where host names may also stand twice, and rows beyond
// the eighth find no place.
std::vector<Problem> problemsOf(const std::vector<Server> &servers);

// The rows without a problem: what the relay is to hold.
std::vector<Server> usableServers(const std::vector<Server> &servers);

// A reason why the configuration file cannot carry the table; none when it can. Unlike the relay, it
// can carry a host name twice.
Problem fileProblemOf(const std::vector<Server> &servers);

// The configuration file as the library writes it from a table that it can carry.
std::string confFileOf(const std::vector<Server> &servers);

// A reason why a server cannot be put into the table beside the others, one of which it may replace.
Problem editProblemOf(const std::vector<Server> &servers, const Server &edited);

// What is wrong with the time that the servers before the last one may take together; none when a
// supplicant is still there for the last one.
Problem waitProblemOf(const std::vector<Server> &servers);

// Inserts a server, which gets its id, or stores one that has an id.
void storeServer(const Database &db, Server &server);

}  // namespace lanyardctl

#endif
