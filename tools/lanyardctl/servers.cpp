#include "servers.h"

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>
#include <iomanip>
#include <limits>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string_view>

#include <lanyard/radius/conf.h>

namespace lanyardctl {

namespace {

constexpr int64_t kIdMax = std::numeric_limits<int32_t>::max();
constexpr size_t kHostMax = 253;
constexpr size_t kLabelMax = 63;

// What the reader of the configuration file takes in one piece, without the newline.
constexpr size_t kLineMax = 510;

// A supplicant gives up after 30 seconds, in which the last server has to answer as well.
constexpr int64_t kWaitSeconds = 20;

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// A character as a person reads it in a message.
std::string asWords(char c) {
    constexpr std::array<std::pair<char, const char *>, 6> kNames = {{{':', "a colon"},
                                                                      {',', "a comma"},
                                                                      {' ', "a blank"},
                                                                      {'\t', "a tab"},
                                                                      {'\n', "a newline"},
                                                                      {'\r', "a carriage return"}}};
    for (const auto &[named, name] : kNames) {
        if (c == named) {
            return name;
        }
    }
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte >= 0x7f) {
        std::ostringstream text;
        text << "the octet 0x" << std::hex << std::setfill('0') << std::setw(2) << int{byte};
        return text.str();
    }
    return std::string("the character '") + c + "'";
}

bool isControl(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7f;
}

// Whether octets are UTF-8, which is what text in the database is.
bool isUtf8(const std::string &text) {
    try {
        return !nlohmann::json(text).dump().empty();
    } catch (const nlohmann::json::type_error &) {
        return false;
    }
}

Problem problemOfLabel(std::string_view label) {
    if (label.empty()) {
        return "host: a part of the name is empty";
    }
    if (label.size() > kLabelMax) {
        return "host: a part of the name is longer than 63 characters";
    }
    if (label.front() == '-' || label.back() == '-') {
        return "host: a part of the name starts or ends with '-'";
    }
    return std::nullopt;
}

Problem problemOfHost(const Text &host) {
    if (!host || host->empty()) {
        return "host: is empty";
    }
    if (host->size() > kHostMax) {
        return "host: is longer than 253 characters";
    }
    for (const char c : *host) {
        if (!isLetter(c) && !isDigit(c) && c != '-' && c != '.' && c != '_') {
            return "host: holds " + asWords(c) + "; a host is a name or a dotted IPv4 address";
        }
    }
    std::istringstream labels(*host + ".");
    std::string label;
    while (std::getline(labels, label, '.')) {
        if (Problem problem = problemOfLabel(label)) {
            return problem;
        }
    }
    // A name does not end in a number: what does is meant as an address.
    in_addr address{};
    if (isNumber(host->substr(host->rfind('.') + 1)) &&
        inet_pton(AF_INET, host->c_str(), &address) != 1) {
        return "host: '" + *host + "' is no dotted IPv4 address";
    }
    return std::nullopt;
}

Problem problemOfSecret(const Text &secret) {
    if (!secret || secret->empty()) {
        return "secret: is empty";
    }
    for (const char c : *secret) {
        if (c == ':' || c == ',' || c == ' ' || c == '\t' || isControl(c)) {
            return "secret: holds " + asWords(c) +
                   ", which the syntax of server entries cannot carry";
        }
    }
    if (!isUtf8(*secret)) {
        return "secret: is no UTF-8 text";
    }
    return std::nullopt;
}

Problem problemOfNumber(const Text &text, const Column &column) {
    const std::string word = std::string(column.word) + ": ";
    const std::string bounds = "is no whole number from " + std::to_string(column.min) + " to " +
                               std::to_string(column.max);
    if (!text || text->empty()) {
        return word + "is empty; it " + bounds;
    }
    if (*text == "-1") {
        return word +
               "-1 does not stand for the default here: server entries are text, in which -1 "
               "leaves the place open for the next field; store the number itself";
    }
    // Any program may have stored it, and it is to be shown.
    const auto control = std::find_if(text->begin(), text->end(), isControl);
    if (control != text->end()) {
        return word + "holds " + asWords(*control) + "; it " + bounds;
    }
    int number = 0;
    const auto [stopped, error] =
        std::from_chars(text->data(), text->data() + text->size(), number);
    if (!isNumber(*text) || error != std::errc() || number < column.min || number > column.max) {
        return word + "'" + *text + "' " + bounds;
    }
    return std::nullopt;
}

std::string lineOf(const std::vector<Server> &servers) {
    std::string line = "authserver        ";
    for (const Server &server : servers) {
        const char *separator = &server == &servers.front() ? "" : ", ";
        for (const Column &column : kServerColumns) {
            const std::string text = (server.*column.field).value_or("");
            line += separator + (column.isNumber() ? canonical(text) : text);
            separator = ":";
        }
    }
    return line;
}

Problem lineProblemOf(const std::vector<Server> &servers) {
    const size_t length = lineOf(servers).size();
    return length <= kLineMax
               ? std::nullopt
               : Problem("the servers would take " + std::to_string(length) +
                         " characters on their line of the configuration file, which has place "
                         "for " +
                         std::to_string(kLineMax) + "; shorten host names or secrets");
}

// The columns that matter, "authserver, authport" and so on.
std::string columnList() {
    std::string list;
    for (const Column &column : kServerColumns) {
        list += (list.empty() ? "" : ", ") + std::string(column.column);
    }
    return list;
}

// Runs a statement that has their values as ?1 to ?5, and the id as ?6.
void runWith(const Database &db, const std::string &sql, const Server &server) {
    const auto value = [&](size_t column) { return server.*kServerColumns.at(column).field; };
    db.run(sql, value(0), value(1), value(2), value(3), value(4), server.id);
}

std::string tooMany() {
    return "there are eight servers already, and the library has no place for more";
}

}  // namespace

void prepareDatabase(const Database &db, const std::optional<std::string> &dictionary) {
    WriteTransaction transaction(db);
    for (const char *kept : {"TRIGGER IF EXISTS lanyardInserted",
                             "TRIGGER IF EXISTS lanyardUpdated", "TRIGGER IF EXISTS lanyardDeleted",
                             "TABLE IF EXISTS lanyardChange", "TABLE IF EXISTS lanyardHost",
                             "TABLE IF EXISTS lanyardRelay", "TABLE IF EXISTS lanyardSlot"}) {
        db.run(std::string("DROP ") + kept);
    }
    db.run("CREATE TABLE IF NOT EXISTS environment(name TEXT, value TEXT)");
    db.run("CREATE TABLE IF NOT EXISTS networkInterface(interfaceName TEXT, ipaddr TEXT)");
    db.run(
        "CREATE TABLE IF NOT EXISTS radiusClient(authserver TEXT, authport TEXT, "
        "authsecret TEXT, authtimeout TEXT, authretries TEXT)");
    const std::vector<std::string> columns = readColumns(db);
    for (const Column &needed : kServerColumns) {
        if (std::find(columns.begin(), columns.end(), needed.column) == columns.end()) {
            throw Failure(std::string("the table radiusClient has no column ") + needed.column);
        }
    }
    if (dictionary) {
        db.run("DELETE FROM environment WHERE name='RADIUS_DICTIONARY'");
    }
    db.run(
        "INSERT INTO environment(name, value) SELECT 'RADIUS_DICTIONARY', ?1 WHERE NOT EXISTS"
        "(SELECT 1 FROM environment WHERE name='RADIUS_DICTIONARY')",
        dictionary.value_or(kDefaultDictionary));
    transaction.commit();
}

bool isNumber(const std::string &text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), isDigit);
}

std::string canonical(const std::string &text) {
    return isNumber(text) ? text.substr(std::min(text.find_first_not_of('0'), text.size() - 1))
                          : text;
}

std::string readDictionary(const Database &db) {
    Statement row = db.query("SELECT value FROM environment WHERE name='RADIUS_DICTIONARY'");
    return row.step() ? row.text(0).value_or("") : "";
}

std::vector<Server> readServers(const Database &db) {
    Statement row = db.query("SELECT " + columnList() + ", rowid FROM radiusClient ORDER BY rowid");
    std::vector<Server> servers;
    while (row.step()) {
        Server &server = servers.emplace_back();
        int index = 0;
        for (const Column &column : kServerColumns) {
            server.*column.field = row.text(index++);
        }
        server.id = row.number(index);
    }
    return servers;
}

std::vector<std::string> readColumns(const Database &db) {
    Statement row = db.query("SELECT name FROM pragma_table_info('radiusClient') ORDER BY cid");
    std::vector<std::string> names;
    while (row.step()) {
        names.push_back(row.text(0).value_or(""));
    }
    return names;
}

Problem problemOf(const Server &server) {
    if (server.id < 1 || server.id > kIdMax) {
        return "the row id " + std::to_string(server.id) + " is not from 1 to " +
               std::to_string(kIdMax);
    }
    Problem problem = problemOfHost(server.host);
    problem = problem ? problem : problemOfSecret(server.secret);
    for (const Column &column : kServerColumns) {
        if (!problem && column.isNumber()) {
            problem = problemOfNumber(server.*column.field, column);
        }
    }
    return problem;
}

std::vector<Problem> problemsOf(const std::vector<Server> &servers) {
    std::vector<Problem> problems;
    std::set<std::string> hosts;
    for (const Server &server : servers) {
        Problem problem = problemOf(server);
        if (!problem && hosts.contains(*server.host)) {
            problem = "the host '" + *server.host +
                      "' stands in an earlier row, and the relay tells servers apart by their host";
        }
        if (!problem && hosts.size() == RAD_SERVERS_MAX) {
            problem = tooMany();
        }
        if (!problem) {
            hosts.insert(*server.host);
        }
        problems.push_back(std::move(problem));
    }
    return problems;
}

std::vector<Server> usableServers(const std::vector<Server> &servers) {
    const std::vector<Problem> problems = problemsOf(servers);
    std::vector<Server> usable;
    for (size_t i = 0; i < servers.size(); ++i) {
        if (!problems[i]) {
            usable.push_back(servers[i]);
        }
    }
    return usable;
}

Problem fileProblemOf(const std::vector<Server> &servers) {
    for (const Server &server : servers) {
        if (const Problem problem = problemOf(server)) {
            return "row " + std::to_string(server.id) + ": " + *problem;
        }
    }
    if (servers.size() > RAD_SERVERS_MAX) {
        return "there are " + std::to_string(servers.size()) +
               " servers, and the library has place for eight";
    }
    return lineProblemOf(servers);
}

Problem editProblemOf(const std::vector<Server> &servers, const Server &edited) {
    // A new row has no id yet.
    Server checked = edited;
    checked.id = 1;
    if (Problem problem = problemOf(checked)) {
        return problem;
    }
    std::vector<Server> table;
    for (const Server &server : servers) {
        if (server.id == edited.id) {
            continue;
        }
        if (server.host == edited.host) {
            return "the host '" + *edited.host + "' is there already, in row " +
                   std::to_string(server.id) + ", and the relay tells servers apart by their host";
        }
        table.push_back(server);
    }
    table.push_back(edited);
    if (table.size() > RAD_SERVERS_MAX && table.size() > servers.size()) {
        return tooMany();
    }
    return lineProblemOf(table);
}

Problem waitProblemOf(const std::vector<Server> &servers) {
    std::vector<Server> before = usableServers(servers);
    if (!before.empty()) {
        before.pop_back();
    }
    int64_t seconds = 0;
    for (const Server &server : before) {
        seconds += std::stoll(*server.timeout) * (std::stoll(*server.retries) + 1);
    }
    return seconds < kWaitSeconds
               ? std::nullopt
               : Problem("the servers before the last one may take " + std::to_string(seconds) +
                         " s together, time-out * (retries + 1) each, and a supplicant gives up "
                         "after 30 s, perhaps before the last one is asked; lower --timeout or "
                         "--retries with 'lanyardctl db set'");
}

std::string confFileOf(const std::vector<Server> &servers) {
    return lineOf(servers) + "\ndictionary        " + kDefaultDictionary + "\n";
}

void storeServer(const Database &db, Server &server) {
    if (server.id != 0) {
        runWith(
            db,
            "UPDATE radiusClient SET (" + columnList() + ")=(?1, ?2, ?3, ?4, ?5) WHERE rowid=?6",
            server);
        return;
    }
    runWith(db,
            "INSERT INTO radiusClient(" + columnList() +
                ", rowid) VALUES(?1, ?2, ?3, ?4, ?5, NULLIF(?6, 0))",
            server);
    server.id = db.number("SELECT last_insert_rowid()");
}

}  // namespace lanyardctl
