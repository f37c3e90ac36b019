#include "servers.h"

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>
#include <limits>
#include <nlohmann/json.hpp>
#include <set>
#include <string_view>

#include <lanyard/radius/conf.h>

namespace lanyardctl {

namespace {

using Problem = std::optional<std::string>;

constexpr int64_t kIdMax = std::numeric_limits<int32_t>::max();
constexpr int kPortMax = 65535;
constexpr int kTimeoutMax = 300;
constexpr int kRetriesMax = 20;
constexpr size_t kHostMax = 253;
constexpr size_t kLabelMax = 63;

// What the reader of the configuration file takes in one piece, without the newline.
constexpr size_t kLineMax = 510;

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// A character as a person reads it in a message.
std::string shown(char c) {
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
        constexpr std::string_view kDigits = "0123456789abcdef";
        return std::string("the octet 0x") + kDigits[byte / 16U] + kDigits[byte % 16U];
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

Problem problemOfHost(const std::optional<std::string> &host) {
    if (!host || host->empty()) {
        return "host: is empty";
    }
    if (host->size() > kHostMax) {
        return "host: is longer than 253 characters";
    }
    for (const char c : *host) {
        if (!isLetter(c) && !isDigit(c) && c != '-' && c != '.' && c != '_') {
            return "host: holds " + shown(c) + "; a host is a name or a dotted IPv4 address";
        }
    }
    std::string_view rest = *host;
    std::string_view label;
    while (true) {
        label = rest.substr(0, rest.find('.'));
        if (Problem problem = problemOfLabel(label)) {
            return problem;
        }
        if (label.size() == rest.size()) {
            break;
        }
        rest.remove_prefix(label.size() + 1);
    }
    // A name does not end in a number: what does is meant as an address.
    in_addr address{};
    if (std::all_of(label.begin(), label.end(), isDigit) &&
        inet_pton(AF_INET, host->c_str(), &address) != 1) {
        return "host: '" + *host + "' is no dotted IPv4 address";
    }
    return std::nullopt;
}

Problem problemOfSecret(const std::optional<std::string> &secret) {
    if (!secret || secret->empty()) {
        return "secret: is empty";
    }
    for (const char c : *secret) {
        if (c == ':' || c == ',' || c == ' ' || c == '\t' || isControl(c)) {
            return "secret: holds " + shown(c) +
                   ", which the syntax of server entries cannot carry";
        }
    }
    if (!isUtf8(*secret)) {
        return "secret: is no UTF-8 text";
    }
    return std::nullopt;
}

Problem problemOfNumber(const char *what, const std::optional<std::string> &text, int min,
                        int max) {
    const std::string bounds =
        "is no whole number from " + std::to_string(min) + " to " + std::to_string(max);
    if (!text || text->empty()) {
        return std::string(what) + ": is empty; it " + bounds;
    }
    if (*text == "-1") {
        return std::string(what) +
               ": -1 does not stand for the default here: server entries are text, in which -1 "
               "leaves the place open for the next field; store the number itself";
    }
    // Any program may have stored it, and it is to be shown.
    const auto control = std::find_if(text->begin(), text->end(), isControl);
    if (control != text->end()) {
        return std::string(what) + ": holds " + shown(*control) + "; it " + bounds;
    }
    int number = 0;
    const char *end = text->data() + text->size();
    const auto [stopped, error] = std::from_chars(text->data(), end, number);
    if (!isDigit(text->front()) || error != std::errc() || stopped != end || number < min ||
        number > max) {
        return std::string(what) + ": '" + *text + "' " + bounds;
    }
    return std::nullopt;
}

std::string lineOf(const std::vector<Server> &servers) {
    std::string line = "authserver        ";
    for (const Server &server : servers) {
        line += &server == &servers.front() ? "" : ", ";
        line += server.host.value_or("");
        for (const auto &number : {server.port, server.timeout, server.retries}) {
            line += ":" + canonical(number.value_or(""));
        }
        line += ":" + server.secret.value_or("");
    }
    return line;
}

std::string columnList() {
    std::string list;
    for (const auto &[name, field] : kServerColumns) {
        list += (list.empty() ? "" : ", ") + std::string(name);
    }
    return list;
}

// Runs a statement whose parameters are the values of these columns.
void runWith(Statement statement, const Server &server) {
    int parameter = 0;
    for (const auto &[name, field] : kServerColumns) {
        statement.bind(++parameter, server.*field);
    }
    statement.run();
}

std::string tooMany() {
    return "there are eight servers already, and the library has no place for more";
}

std::string tooLong(size_t length) {
    return "the servers would take " + std::to_string(length) +
           " characters on their line of the configuration file, which has place for " +
           std::to_string(kLineMax) + "; shorten host names or secrets";
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
    for (const auto &[needed, field] : kServerColumns) {
        if (std::find(columns.begin(), columns.end(), needed) == columns.end()) {
            throw Failure(std::string("the table radiusClient has no column ") + needed);
        }
    }
    if (dictionary) {
        db.run("DELETE FROM environment WHERE name='RADIUS_DICTIONARY'");
    }
    db.prepare(
          "INSERT INTO environment(name, value) SELECT 'RADIUS_DICTIONARY', ?1 WHERE NOT EXISTS"
          "(SELECT 1 FROM environment WHERE name='RADIUS_DICTIONARY')")
        .bind(1, dictionary.value_or(kDefaultDictionary))
        .run();
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
    Statement statement =
        db.prepare("SELECT value FROM environment WHERE name='RADIUS_DICTIONARY'");
    return statement.step() ? statement.text(0).value_or("") : "";
}

std::vector<Server> readServers(const Database &db) {
    Statement statement =
        db.prepare("SELECT rowid, " + columnList() + " FROM radiusClient ORDER BY rowid");
    std::vector<Server> servers;
    while (statement.step()) {
        Server &server = servers.emplace_back(Server{.id = statement.number(0)});
        int column = 0;
        for (const auto &[name, field] : kServerColumns) {
            server.*field = statement.text(++column);
        }
    }
    return servers;
}

std::vector<std::string> readColumns(const Database &db) {
    Statement statement =
        db.prepare("SELECT name FROM pragma_table_info('radiusClient') ORDER BY cid");
    std::vector<std::string> names;
    while (statement.step()) {
        names.push_back(statement.text(0).value_or(""));
    }
    return names;
}

Problem problemOf(const Server &server) {
    if (server.id < 1 || server.id > kIdMax) {
        return "the row id " + std::to_string(server.id) + " is not from 1 to " +
               std::to_string(kIdMax);
    }
    for (Problem problem : {problemOfHost(server.host), problemOfSecret(server.secret),
                            problemOfNumber("port", server.port, 0, kPortMax),
                            problemOfNumber("time-out", server.timeout, 1, kTimeoutMax),
                            problemOfNumber("retries", server.retries, 0, kRetriesMax)}) {
        if (problem) {
            return problem;
        }
    }
    return std::nullopt;
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
    const size_t length = lineOf(servers).size();
    return length > kLineMax ? Problem(tooLong(length)) : std::nullopt;
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
    const size_t length = lineOf(table).size();
    return length > kLineMax ? Problem(tooLong(length)) : std::nullopt;
}

std::string confFileOf(const std::vector<Server> &servers) {
    return lineOf(servers) + "\ndictionary        " + kDefaultDictionary + "\n";
}

void insertServer(const Database &db, Server &server) {
    runWith(db.prepare("INSERT INTO radiusClient(" + columnList() + ") VALUES(?1, ?2, ?3, ?4, ?5)"),
            server);
    server.id = db.lastRow();
}

void updateServer(const Database &db, const Server &server) {
    runWith(db.prepare("UPDATE radiusClient SET (" + columnList() +
                       ")=(?1, ?2, ?3, ?4, ?5) WHERE rowid=" + std::to_string(server.id)),
            server);
}

void deleteServer(const Database &db, int64_t id) {
    db.prepare("DELETE FROM radiusClient WHERE rowid=?1").bind(1, id).run();
}

}  // namespace lanyardctl
