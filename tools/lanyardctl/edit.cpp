#include "edit.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <vector>

namespace lanyardctl {

namespace {

void apply(const Server &fields, Server &server) {
    for (const auto &[name, field] : kServerColumns) {
        if (fields.*field) {
            const bool isText = field == &Server::host || field == &Server::secret;
            server.*field = isText ? fields.*field : canonical(*(fields.*field));
        }
    }
}

// The server with a row id, or else the one with a host. A host never reads as a number.
Server findServer(const std::vector<Server> &servers, const std::string &name) {
    const bool byId = isNumber(name);
    std::vector<Server> found;
    std::copy_if(
        servers.begin(), servers.end(), std::back_inserter(found), [&](const Server &server) {
            return byId ? std::to_string(server.id) == canonical(name) : server.host == name;
        });
    if (found.empty()) {
        throw NotFound(byId ? "there is no server with the row id " + name
                            : "there is no server '" + name + "'");
    }
    if (found.size() > 1) {
        throw Refusal("the host '" + name + "' stands in several rows; name one by its row id");
    }
    return found.front();
}

void checkEdit(const std::vector<Server> &servers, const Server &server) {
    if (const auto problem = editProblemOf(servers, server)) {
        throw Refusal(*problem);
    }
}

Json asJson(const std::optional<std::string> &text) {
    return text ? Json(*text) : Json(nullptr);
}

// Numbers as numbers, what is none as the text that it is.
Json numberAsJson(const std::optional<std::string> &text) {
    constexpr size_t kDigitsMax = 9;
    return text && isNumber(*text) && text->size() <= kDigitsMax ? Json(std::stoi(*text))
                                                                 : asJson(text);
}

Json asJson(const Server &server, bool withSecret) {
    Json json = {{"id", server.id},
                 {"host", asJson(server.host)},
                 {"port", numberAsJson(server.port)},
                 {"timeout", numberAsJson(server.timeout)},
                 {"retries", numberAsJson(server.retries)}};
    if (withSecret) {
        json["secret"] = asJson(server.secret);
    }
    return json;
}

void answerEdit(const Report &report, const Server &server, const std::string &what) {
    report.answer(
        {{"ok", true}, {"server", asJson(server, false)}},
        what + " server " + std::to_string(server.id) + ": " + server.host.value_or("(no host)"));
}

// Text of the database for a terminal: whatever could move the cursor is shown as '?'.
std::string shown(const std::optional<std::string> &text) {
    std::string safe = text.value_or("(none)");
    std::replace_if(
        safe.begin(), safe.end(), [](unsigned char c) { return std::iscntrl(c) != 0; }, '?');
    return safe;
}

using Line = std::vector<std::string>;

std::string asTable(const std::vector<Line> &lines) {
    std::vector<size_t> widths(lines.front().size());
    for (const Line &line : lines) {
        for (size_t i = 0; i < line.size(); ++i) {
            widths[i] = std::max(widths[i], line[i].size());
        }
    }
    std::string text;
    for (const Line &line : lines) {
        std::string row;
        for (size_t i = 0; i < line.size(); ++i) {
            row += line[i] + std::string(widths[i] + 2 - line[i].size(), ' ');
        }
        row.erase(row.find_last_not_of(' ') + 1);
        text += (text.empty() ? "" : "\n") + row;
    }
    return text;
}

}  // namespace

void addServer(const Database &db, const Server &fields, const Report &report) {
    Server server{.port = kDefaultPort, .timeout = kDefaultTimeout, .retries = kDefaultRetries};
    apply(fields, server);
    WriteTransaction transaction(db);
    checkEdit(readServers(db), server);
    insertServer(db, server);
    transaction.commit();
    answerEdit(report, server, "added");
}

void changeServer(const Database &db, const std::string &name, const Server &fields,
                  const Report &report) {
    if (fields == Server{}) {
        throw Refusal("name what is to be changed: --host, --port, --timeout, --retries, --secret");
    }
    WriteTransaction transaction(db);
    const std::vector<Server> servers = readServers(db);
    Server server = findServer(servers, name);
    apply(fields, server);
    checkEdit(servers, server);
    updateServer(db, server);
    transaction.commit();
    answerEdit(report, server, "changed");
}

void removeServer(const Database &db, const std::string &name, const Report &report) {
    WriteTransaction transaction(db);
    const Server server = findServer(readServers(db), name);
    deleteServer(db, server.id);
    transaction.commit();
    answerEdit(report, server, "deleted");
}

void listServers(const Database &db, bool withSecrets, const Report &report) {
    const std::vector<Server> servers = readServers(db);
    const auto problems = problemsOf(servers);
    Json list = Json::array();
    std::vector<Line> lines = {{"ID", "HOST", "PORT", "TIMEOUT", "RETRIES"}};
    if (withSecrets) {
        lines[0].push_back("SECRET");
    }
    std::string notes;
    for (size_t i = 0; i < servers.size(); ++i) {
        const Server &server = servers[i];
        Json json = asJson(server, withSecrets);
        Line line = {std::to_string(server.id), shown(server.host), shown(server.port),
                     shown(server.timeout), shown(server.retries)};
        if (withSecrets) {
            line.push_back(shown(server.secret));
        }
        if (problems[i]) {
            json["problem"] = *problems[i];
            notes += "\nserver " + line[0] + " cannot be used: " + shown(problems[i]);
        }
        list.push_back(json);
        lines.push_back(line);
    }
    report.answer({{"ok", true}, {"servers", list}},
                  servers.empty() ? "no servers" : asTable(lines) + notes);
}

std::string readSecret(const std::string &file) {
    std::ifstream opened;
    if (file != "-") {
        opened.open(file, std::ios::binary);
        if (!opened) {
            throw Failure("cannot read the secret from " + file + ": " + std::strerror(errno));
        }
    }
    std::istream &stream = file == "-" ? std::cin : opened;
    constexpr size_t kSizeMax = 4096;
    std::array<char, kSizeMax> buffer{};
    stream.read(buffer.data(), static_cast<std::streamsize>(buffer.size()));
    if (stream.bad() || !stream.eof()) {
        throw Failure("the secret in " + file + " is too long or cannot be read");
    }
    std::string secret(buffer.data(), static_cast<size_t>(stream.gcount()));
    explicit_bzero(buffer.data(), buffer.size());
    if (secret.ends_with('\n')) {
        secret.pop_back();
    }
    return secret;
}

}  // namespace lanyardctl
