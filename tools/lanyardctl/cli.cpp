#include "cli.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <lanyard/radius/dict.h>

#include "database.h"
#include "edit.h"
#include "report.h"
#include "serve.h"
#include "servers.h"

namespace lanyardctl {

namespace {

constexpr const char *kDefaultDatabase = "/var/lib/lanyard/config.db";

constexpr const char *kFooter =
    "Exit status: 0 done; 1 failed (database, bus, machine); 2 refused (command line, values that\n"
    "cannot be stored); 3 there is no such server.";

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

struct Options {
    bool json = false;
    std::optional<std::string> database = {};
    std::optional<std::string> dictionary = {};
    std::string name = {};
    Server fields = {};
    std::optional<std::string> secretFile = {};
    bool withSecrets = false;
};

// The database to work on. The default one lies where the platform has the device's files.
std::string databaseFile(const Options &options) {
    if (options.database) {
        return *options.database;
    }
    const char *root = secure_getenv("PAL_ROOT");
    return std::string(root ? root : "") + kDefaultDatabase;
}

// Why a relay on the database would not start; none when its dictionary loads. What is wrong with
// the dictionary stands in the library's log.
std::optional<std::string> dictionaryProblem(const Database &db) {
    const std::string path = readDictionary(db);
    const bool loads = radDictLoad(path.c_str()) == 0;
    radDictUnload();
    return loads ? std::nullopt
                 : std::optional<std::string>("the dictionary '" + path +
                                              "' cannot be loaded, and no relay starts without "
                                              "it; 'lanyardctl db init --dictionary FILE' names "
                                              "another one");
}

Database openDatabase(const Options &options) {
    return Database::open(databaseFile(options));
}

void initDatabase(const Options &options, const Report &report) {
    const std::string file = databaseFile(options);
    if (!options.database) {
        std::error_code error;
        std::filesystem::create_directories(std::filesystem::path(file).parent_path(), error);
        if (error) {
            throw Failure("cannot make the folder of " + file + ": " + error.message());
        }
    }
    const Database db = Database::create(file);
    prepareDatabase(db, options.dictionary);
    report.done("the database " + file + " is ready", dictionaryProblem(db));
}

void readSecretFile(Options &options) {
    if (options.secretFile) {
        options.fields.secret = readSecret(*options.secretFile);
    }
}

void serveDatabase(const Options &options, Report &report) {
    const std::string file = databaseFile(options);
    if (options.dictionary) {
        const Database db = Database::open(file);
        prepareDatabase(db, options.dictionary);
        if (const auto problem = dictionaryProblem(db)) {
            report.problem("dictionary", *problem);
        }
    }
    serve(file, report);
}

void addFieldOptions(CLI::App &command, Options &options) {
    command
        .add_option("--port", options.fields.port,
                    "UDP port, 0 to 65535; 0 for the port of 'radius' in the services database")
        ->type_name("PORT");
    command
        .add_option("--timeout", options.fields.timeout, "seconds to wait for an answer, 1 to 300")
        ->type_name("SECONDS");
    command.add_option("--retries", options.fields.retries, "sends after the first one, 0 to 20")
        ->type_name("COUNT");
    auto *secret =
        command.add_option("--secret", options.fields.secret, "shared secret")->type_name("SECRET");
    command
        .add_option("--secret-file", options.secretFile,
                    "file with the shared secret, - for standard input")
        ->type_name("FILE")
        ->excludes(secret);
    command.footer(kFieldsFooter);
}

void addDictionaryOption(CLI::App &command, Options &options) {
    command
        .add_option("--dictionary", options.dictionary,
                    std::string("dictionary file that the relay loads; ") + kDefaultDictionary +
                        " unless set before")
        ->type_name("FILE");
}

// The commands, each with what it does.
class CommandLine {
  public:
    CommandLine() {
        app_.require_subcommand(1);
        app_.footer(kFooter);
        app_.add_flag("--json", options_.json, "answer with JSON, one document a line");
        app_.set_version_flag("--version", "lanyardctl " LANYARD_VERSION);
        db_->require_subcommand(1);
        db_->fallthrough();
        db_->add_option("-d,--database", options_.database,
                        std::string("database file; ") + kDefaultDatabase +
                            " without it, under $PAL_ROOT when that is set")
            ->type_name("FILE");

        auto *init = add("init", "Makes the database, or what it lacks",
                         [this](Report &report) { initDatabase(options_, report); });
        addDictionaryOption(*init, options_);
        init->footer(
            "It may be run again at any time, also on a database that has these tables already:\n"
            "no row is changed. Afterwards only its owner has access to the file.");

        auto *add = this->add("add", "Adds a server", [this](Report &report) {
            readSecretFile(options_);
            addServer(openDatabase(options_), options_.fields, report);
        });
        add->add_option("HOST", options_.fields.host, "name or dotted IPv4 address")
            ->required()
            ->type_name("");
        addFieldOptions(*add, options_);

        auto *set = this->add("set", "Changes a server", [this](Report &report) {
            readSecretFile(options_);
            changeServer(openDatabase(options_), options_.name, options_.fields, report);
        });
        addNameOption(*set);
        set->add_option("--host", options_.fields.host, "new name or dotted IPv4 address")
            ->type_name("HOST");
        addFieldOptions(*set, options_);

        addNameOption(*this->add("del", "Deletes a server", [this](Report &report) {
            removeServer(openDatabase(options_), options_.name, report);
        }));

        this->add("list", "Lists the servers in the order in which they are asked",
                  [this](Report &report) {
                      listServers(openDatabase(options_), options_.withSecrets, report);
                  })
            ->add_flag("--secrets", options_.withSecrets, "show the shared secrets");

        auto *serve =
            this->add("serve", "Takes changes of the servers to the relay and to /var/radius.conf",
                      [this](Report &report) { serveDatabase(options_, report); });
        addDictionaryOption(*serve, options_);
        serve->footer(
            "It runs in the foreground until SIGTERM or SIGINT. SIGHUP makes it read and write "
            "again.\n"
            "It may be killed at any time. One service runs at a time, as module 20 of the bus. A\n"
            "relay that it does not know it tells to end: whoever starts the relay starts it "
            "again.");

        this->add("replay", "Gives all servers to a relay, whatever it has",
                  [this](Report &report) { lanyardctl::replay(databaseFile(options_), report); })
            ->footer(
                "The relay is told to end unless it is new, and gets them when it is started "
                "again.");
    }

    int run(int argc, char **argv) {
        try {
            app_.parse(argc, argv);
        } catch (const CLI::Success &wanted) {
            return app_.exit(wanted);
        } catch (const CLI::ParseError &error) {
            // A flag is set only once the whole command line was understood.
            const bool json =
                std::find(argv + 1, argv + argc, std::string_view("--json")) != argv + argc;
            Report(json).failure(describe(error));
            return kRefused;
        }
        Report report(options_.json);
        try {
            command_(report);
            return kDone;
        } catch (const Refusal &refusal) {
            report.failure(refusal.what());
            return kRefused;
        } catch (const NotFound &missing) {
            report.failure(missing.what());
            return kNotFound;
        } catch (const std::exception &failure) {
            report.failure(failure.what());
            return kFailed;
        }
    }

  private:
    using Command = std::function<void(Report &)>;

    CLI::App *add(const char *name, const char *description, const Command &command) {
        CLI::App *app = db_->add_subcommand(name, description);
        app->fallthrough();
        app->callback([this, command] { command_ = command; });
        return app;
    }

    // A word that nobody knows is the reason why the command is missing.
    std::string describe(const CLI::ParseError &error) const {
        const std::vector<std::string> unknown = app_.remaining(true);
        return unknown.empty() ? error.what() : CLI::ExtrasError(unknown).what();
    }

    void addNameOption(CLI::App &command) {
        command.add_option("SERVER", options_.name, "host of the server, or its row id")
            ->required()
            ->type_name("");
    }

    Options options_;
    Command command_;
    CLI::App app_{"Keeps the RADIUS servers of a Lanyard device."};
    CLI::App *db_ = app_.add_subcommand("db", "The servers in the device's database");
};

}  // namespace

int run(int argc, char **argv) {
    return CommandLine().run(argc, argv);
}

}  // namespace lanyardctl
