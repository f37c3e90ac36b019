// The groups "db" and "relay": the servers in the device's database, the service that delivers their
// changes, and how the relay does.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <lanyard/radius/dict.h>

#include "command.h"
#include "database.h"
#include "failure.h"
#include "report.h"
#include "serve.h"
#include "servers.h"
#include "status.h"
#include "table.h"
#include "tools/log_to_syslog.h"

namespace lanyardctl {
namespace {

constexpr const char *kDefaultDatabase = "/var/lib/lanyard/config.db";

constexpr const char *kFieldsFooter =
    "A secret on the command line can be seen by other users of the machine while the command "
    "runs;\n"
    "--secret-file FILE reads it from a file, --secret-file - from standard input.\n"
    "Host and secret hold no colon, comma, blank, tab or control character, for these have no "
    "place\n"
    "in the server entries host:port:timeout:retries:secret that the library reads. All servers\n"
    "together have to fit on one line of 510 characters. There are eight at most, one for each "
    "host.\n"
    "-1 for \"the default\" has no place in an entry either: the number itself is stored.";

struct DatabaseOptions {
    std::string file = {};  // the database
    std::optional<std::string> dictionary = {};
    std::string name = {};  // a host, or a row id
    Server fields = {};     // those that are given
    std::optional<std::string> secretFile = {};
    bool withSecrets = false;
    bool usesSyslog = false;
};

// Why a relay on the database would not start; none when its dictionary loads. What is wrong with
// the dictionary stands in the library's log.
Problem dictionaryProblem(const Database &db) {
    const std::string path = readDictionary(db);
    const bool loads = radDictLoad(path.c_str()) == 0;
    radDictUnload();
    return loads ? std::nullopt
                 : Problem("the dictionary '" + path +
                           "' cannot be loaded, and no relay starts without it; 'lanyardctl db "
                           "init --dictionary FILE' names another one");
}

void initDatabase(const DatabaseOptions &options, Report &report) {
    const Database db = Database::create(options.file);
    prepareDatabase(db, options.dictionary);
    report.done("the database " + options.file + " is ready", dictionaryProblem(db));
}

void serveDatabase(const DatabaseOptions &options, Report &report) {
    if (options.usesSyslog) {
        lanyard::logToSyslog("lanyardctl");
    }
    if (options.dictionary) {
        const Database db = Database::open(options.file);
        prepareDatabase(db, options.dictionary);
        if (const auto problem = dictionaryProblem(db)) {
            report.problem("dictionary", *problem);
        }
    }
    serve(options.file, report);
}

void replayDatabase(const DatabaseOptions &options, Report &report) {
    replay(options.file, report);
}

// Editing

// The secret in a file, or on standard input for "-": the whole text but for a newline at its end.
std::string readSecret(const std::string &file) {
    std::ifstream stream(file == "-" ? "/dev/stdin" : file, std::ios::binary);
    if (!stream) {
        throw Failure("cannot read the secret from " + file + ": " + std::strerror(errno));
    }
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

// Puts the fields that are given into a row, which is checked and stored.
void store(const Database &db, const std::vector<Server> &others, const DatabaseOptions &options,
           Server &server) {
    for (const Column &column : kServerColumns) {
        if (const Text &given = options.fields.*column.field) {
            server.*column.field = column.isNumber() ? canonical(*given) : *given;
        }
    }
    if (const auto problem = editProblemOf(others, server)) {
        throw Failure(*problem, kRefused);
    }
    storeServer(db, server);
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
        throw Failure(byId ? "there is no server with the row id " + name
                           : "there is no server '" + name + "'",
                      kNotFound);
    }
    if (found.size() > 1) {
        throw Failure("the host '" + name + "' stands in several rows; name one by its row id",
                      kRefused);
    }
    return found.front();
}

// Numbers as numbers, what is none as the text that it is.
Json serverAsJson(const Server &server, bool withSecret) {
    constexpr size_t kDigitsMax = 9;
    Json json = {{"id", server.id}};
    for (const Column &column : kServerColumns) {
        const Text &text = server.*column.field;
        if (!text) {
            json[column.name] = nullptr;
        } else if (column.isNumber() && isNumber(*text) && text->size() <= kDigitsMax) {
            json[column.name] = std::stoi(*text);
        } else {
            json[column.name] = *text;
        }
    }
    if (!withSecret) {
        json.erase("secret");
    }
    return json;
}

void answerEdit(const Report &report, const Server &server, const std::string &what) {
    report.answer(
        {{"ok", true}, {"server", serverAsJson(server, false)}},
        what + " server " + std::to_string(server.id) + ": " + server.host.value_or("(no host)"));
}

void warnOfWaits(const Report &report, const Database &db) {
    if (const auto problem = waitProblemOf(readServers(db))) {
        report.warning(*problem);
    }
}

void addServer(const DatabaseOptions &options, Report &report) {
    const Database db = Database::open(options.file);
    Server server;
    for (const Column &column : kServerColumns) {
        server.*column.field = column.standard ? Text(column.standard) : std::nullopt;
    }
    WriteTransaction transaction(db);
    store(db, readServers(db), options, server);
    transaction.commit();
    answerEdit(report, server, "added");
    warnOfWaits(report, db);
}

void changeServer(const DatabaseOptions &options, Report &report) {
    const Database db = Database::open(options.file);
    if (options.fields == Server{}) {
        throw Failure("name what is to be changed: --host, --port, --timeout, --retries, --secret",
                      kRefused);
    }
    WriteTransaction transaction(db);
    const std::vector<Server> servers = readServers(db);
    Server server = findServer(servers, options.name);
    store(db, servers, options, server);
    transaction.commit();
    answerEdit(report, server, "changed");
    warnOfWaits(report, db);
}

void removeServer(const DatabaseOptions &options, Report &report) {
    const Database db = Database::open(options.file);
    WriteTransaction transaction(db);
    const Server server = findServer(readServers(db), options.name);
    db.run("DELETE FROM radiusClient WHERE rowid=?1", server.id);
    transaction.commit();
    answerEdit(report, server, "deleted");
}

// Showing

void listServers(const DatabaseOptions &options, Report &report) {
    const std::vector<Server> servers = readServers(Database::open(options.file));
    const std::vector<Problem> problems = problemsOf(servers);
    const auto isShown = [&](const Column &column) {
        return options.withSecrets || column.field != &Server::secret;
    };
    Json list = Json::array();
    std::vector<Line> lines = {{"ID"}};
    std::string notes;
    for (const Column &column : kServerColumns) {
        if (isShown(column)) {
            std::string &heading = lines.front().emplace_back(column.name);
            std::transform(heading.begin(), heading.end(), heading.begin(), toupper);
        }
    }
    for (size_t i = 0; i < servers.size(); ++i) {
        Json &json = list.emplace_back(serverAsJson(servers[i], options.withSecrets));
        Line &line = lines.emplace_back(Line{std::to_string(servers[i].id)});
        for (const Column &column : kServerColumns) {
            if (isShown(column)) {
                line.push_back(shown(servers[i].*column.field));
            }
        }
        if (problems[i]) {
            json["problem"] = *problems[i];
            notes += "\nserver " + line[0] + " cannot be used: " + shown(problems[i]);
        }
    }
    report.answer({{"ok", true}, {"servers", list}},
                  servers.empty() ? "no servers" : asTable(lines) + notes);
}

void showStatus(const DatabaseOptions & /*options*/, Report &report) {
    tellStatus(report);
}

// The command line

// What a command takes beside the database.
enum Takes : unsigned {
    kNothing = 0,
    kDictionary = 1U << 0U,
    kHost = 1U << 1U,     // of a new server
    kServer = 1U << 2U,   // one that is there
    kNewHost = 1U << 3U,  // for one that is there
    kFields = 1U << 4U,
    kSecrets = 1U << 5U,  // whether they are shown
    kSyslog = 1U << 6U,   // whether that has what it says
};

constexpr std::string_view kDatabaseGroup = "db";
constexpr std::string_view kRelayGroup = "relay";

struct DatabaseCommand {
    std::string_view group;
    const char *name;
    const char *help;
    unsigned takes;
    void (*run)(const DatabaseOptions &options, Report &report);
    const char *footer;
};

constexpr std::array kDatabaseCommands = {
    DatabaseCommand{
        kDatabaseGroup, "init", "Makes the database, or what it lacks", kDictionary, initDatabase,
        "It may be run again at any time, also on a database that has these tables already:\n"
        "no row is changed. Afterwards only its owner has access to the file."},
    DatabaseCommand{kDatabaseGroup, "add", "Adds a server", kHost | kFields, addServer,
                    kFieldsFooter},
    DatabaseCommand{kDatabaseGroup, "set", "Changes a server", kServer | kNewHost | kFields,
                    changeServer, kFieldsFooter},
    DatabaseCommand{kDatabaseGroup, "del", "Deletes a server", kServer, removeServer, ""},
    DatabaseCommand{kDatabaseGroup, "list",
                    "Lists the servers in the order in which they are asked", kSecrets, listServers,
                    ""},
    DatabaseCommand{
        kDatabaseGroup, "serve",
        "Takes changes of the servers to the relay and to /var/radius.conf", kDictionary | kSyslog,
        serveDatabase,
        "It runs in the foreground until SIGTERM or SIGINT. SIGHUP makes it read and write "
        "again.\n"
        "It may be killed at any time. One service runs at a time, as module 20 of the bus. A\n"
        "relay that it does not know it tells to end: whoever starts the relay starts it "
        "again."},
    DatabaseCommand{
        kDatabaseGroup, "replay", "Gives all servers to a relay, whatever it has", kNothing,
        replayDatabase,
        "The relay is told to end unless it is new, and gets them when it is started again."},
    DatabaseCommand{
        kRelayGroup, "status", "Shows what the relay has in flight, and how its servers do",
        kNothing, showStatus,
        "RESENT: packets sent again. BAD-AUTH, STRAYS, MALFORMED: datagrams that were ignored.\n"
        "MEDIAN-MS, P95-MS: round trip of the last answered requests, in milliseconds."},
};

void addOptions(CLI::App &app, const DatabaseCommand &command, DatabaseOptions &options) {
    if ((command.takes & kDictionary) != 0) {
        app.add_option("--dictionary", options.dictionary,
                       std::string("dictionary file that the relay loads; ") + kDefaultDictionary +
                           " unless set before")
            ->type_name("FILE");
    }
    if ((command.takes & kServer) != 0) {
        app.add_option("SERVER", options.name, "host of the server, or its row id")
            ->required()
            ->type_name("");
    }
    for (const Column &column : kServerColumns) {
        Text &field = options.fields.*column.field;
        const bool isHost = column.field == &Server::host;
        if (isHost && (command.takes & kHost) != 0) {
            app.add_option("HOST", field, column.help)->required()->type_name("");
        } else if ((command.takes & (isHost ? kNewHost : kFields)) != 0) {
            const bool isAdded = column.standard && (command.takes & kHost) != 0;
            app.add_option(std::string("--") + column.name, field,
                           (isHost ? "new " : "") + std::string(column.help) +
                               (isAdded ? std::string("; ") + column.standard + " without it" : ""))
                ->type_name(column.type);
        }
    }
    if ((command.takes & kFields) != 0) {
        app.add_option("--secret-file", options.secretFile,
                       "file with the shared secret, - for standard input")
            ->type_name("FILE")
            ->excludes("--secret");
    }
    if ((command.takes & kSyslog) != 0) {
        app.add_flag("--syslog", options.usesSyslog, "log to syslog, not to the standard streams");
    }
    if ((command.takes & kSecrets) != 0) {
        app.add_flag("--secrets", options.withSecrets, "show the shared secrets");
    }
}

// What a command does once the whole command line is understood.
ExitCode runCommand(const DatabaseCommand &command, DatabaseOptions &options, Report &report) {
    if (command.group == kDatabaseGroup && options.file.empty()) {
        options.file = defaultFile(kDefaultDatabase, command.run == initDatabase);
    }
    if (options.secretFile) {
        options.fields.secret = readSecret(*options.secretFile);
    }
    command.run(options, report);
    return kDone;
}

}  // namespace

void addDatabaseCommands(CLI::App &app, Task &task) {
    const auto options = std::make_shared<DatabaseOptions>();
    CLI::App &db =
        addGroup(app, std::string(kDatabaseGroup), "The servers in the device's database");
    CLI::App &relay = addGroup(app, std::string(kRelayGroup), "The EAP relay on the bus");
    db.add_option("-d,--database", options->file,
                  std::string("database file; ") + kDefaultDatabase +
                      " without it, under $PAL_ROOT when that is set")
        ->type_name("FILE");
    for (const DatabaseCommand &command : kDatabaseCommands) {
        CLI::App &group = command.group == kDatabaseGroup ? db : relay;
        CLI::App &subcommand = addCommand(
            group, command.name, command.help, task,
            [options, &command](Report &report) { return runCommand(command, *options, report); });
        subcommand.footer(command.footer);
        addOptions(subcommand, command, *options);
    }
}

}  // namespace lanyardctl
