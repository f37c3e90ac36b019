// The commands, as a person or a script meets them: exit status, output, and what is stored.
#include <algorithm>
#include <filesystem>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "tests/interop/child_process.h"
#include "tests/unit/tools/lanyardctl/device.h"
#include "tools/lanyardctl/failure.h"

namespace lanyard::test::command_test {
namespace {

using lanyardctl::kDone;
using lanyardctl::kFailed;
using lanyardctl::kNotFound;
using lanyardctl::kRefused;
using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class Commands : public testing::Test {
  protected:
    // lanyardctl ARGUMENTS, of which "db ..." works on the device's database.
    ProgramResult run(std::vector<std::string> arguments) {
        const auto db = std::find(arguments.begin(), arguments.end(), "db");
        if (db != arguments.end()) {
            arguments.insert(db + 1, {"-d", device_.file()});
        }
        arguments.insert(arguments.begin(), LANYARDCTL);
        ProgramResult result =
            runProgram(arguments, {"PAL_ROOT=" + device_.root().folder().string()});
        EXPECT_THAT(result.err, Not(HasSubstr("Sanitizer")));
        EXPECT_THAT(result.err, Not(HasSubstr("runtime error")));
        return result;
    }

    void expectRefused(const std::vector<std::string> &arguments, const std::string &text,
                       int status = kRefused) {
        const auto before = lanyardctl::readServers(device_.db());
        const ProgramResult result = run(arguments);
        EXPECT_EQ(status, result.status);
        EXPECT_EQ("", result.out);
        EXPECT_EQ("lanyardctl: " + text + "\n", result.err);
        EXPECT_EQ(before, lanyardctl::readServers(device_.db()));
    }

    void expectFails(const std::vector<std::string> &arguments, const std::string &text) {
        const ProgramResult result = run(arguments);
        EXPECT_EQ(kFailed, result.status);
        EXPECT_EQ("lanyardctl: " + text + "\n", result.err);
    }

    Device device_;
};

TEST_F(Commands, AddStoresAServerWithItsDefaults) {
    ProgramResult result = run({"db", "add", "192.0.2.1", "--secret", "s1"});
    EXPECT_EQ(kDone, result.status) << result.err;
    EXPECT_EQ("added server 1: 192.0.2.1\n", result.out);
    result = run({"db", "add", "b.example", "--secret", "s2", "--port", "01645", "--timeout", "5",
                  "--retries", "0"});
    EXPECT_EQ(kDone, result.status) << result.err;
    const std::vector<lanyardctl::Server> expected = {{1, "192.0.2.1", "1812", "s1", "3", "1"},
                                                      {2, "b.example", "1645", "s2", "5", "0"}};
    EXPECT_EQ(expected, lanyardctl::readServers(device_.db()));
}

TEST_F(Commands, SecretComesFromAFileOrStandardInput) {
    device_.root().write("/secret", "from a file\n");
    const std::string file = device_.root().path("/secret").string();
    expectRefused({"db", "add", "a", "--secret-file", file},
                  "secret: holds a blank, which the syntax of server entries cannot carry");
    device_.root().write("/secret", "two\nlines\n");
    expectRefused({"db", "add", "a", "--secret-file", file},
                  "secret: holds a newline, which the syntax of server entries cannot carry");
    device_.root().write("/secret", std::string(5000, 's'));
    expectRefused({"db", "add", "a", "--secret-file", file},
                  "the secret in " + file + " is too long or cannot be read", kFailed);
    device_.root().write("/secret", "");
    expectRefused({"db", "add", "a", "--secret-file", file}, "secret: is empty");
    device_.root().write("/secret", "file-secret\n");
    EXPECT_EQ(kDone, run({"db", "add", "a", "--secret-file", file}).status);
    expectRefused({"db", "add", "b", "--secret-file", "/none"},
                  "cannot read the secret from /none: No such file or directory", kFailed);
    const ProgramResult piped =
        runProgram({"/bin/sh", "-c", R"(printf piped | "$0" db -d "$1" add b --secret-file -)",
                    LANYARDCTL, device_.file()},
                   {});
    EXPECT_EQ(kDone, piped.status) << piped.err;
    const auto servers = lanyardctl::readServers(device_.db());
    ASSERT_EQ(2U, servers.size());
    EXPECT_EQ("file-secret", servers[0].secret);
    EXPECT_EQ("piped", servers[1].secret);
}

TEST_F(Commands, AddRefusesWhatCannotBeStored) {
    expectRefused({"db", "add", "2001:db8::1", "--secret", "s"},
                  "host: holds a colon; a host is a name or a dotted IPv4 address");
    expectRefused({"db", "add", "", "--secret", "s"}, "host: is empty");
    expectRefused({"db", "add", "a"}, "secret: is empty");
    expectRefused({"db", "add", "a", "--secret", "s:t"},
                  "secret: holds a colon, which the syntax of server entries cannot carry");
    expectRefused({"db", "add", "a", "--secret", "s", "--port", "70000"},
                  "port: '70000' is no whole number from 0 to 65535");
    expectRefused({"db", "add", "a", "--secret", "s", "--retries", "many"},
                  "retries: 'many' is no whole number from 0 to 20");
    expectRefused({"db", "add", "a", "--secret", "s", "--timeout", "-1"},
                  "time-out: -1 does not stand for the default here: server entries are text, in "
                  "which -1 leaves the place open for the next field; store the number itself");
    EXPECT_EQ(kDone, run({"db", "add", "a", "--secret", "s"}).status);
    expectRefused({"db", "add", "a", "--secret", "s", "--port", "1645"},
                  "the host 'a' is there already, in row 1, and the relay tells servers apart by "
                  "their host");
    expectRefused({"db", "add", "b", "--secret", std::string(480, 's')},
                  "the servers would take 523 characters on their line of the configuration file, "
                  "which has place for 510; shorten host names or secrets");
    for (int i = 2; i < 9; ++i) {
        device_.change(insertion("h" + std::to_string(i)));
    }
    expectRefused({"db", "add", "h9", "--secret", "s"},
                  "there are eight servers already, and the library has no place for more");
}

TEST_F(Commands, SetChangesWhatIsNamedAndNothingElse) {
    device_.change(insertion("a"));
    device_.change(insertion("b"));
    ProgramResult result = run({"db", "set", "a", "--port", "1645"});
    EXPECT_EQ(kDone, result.status) << result.err;
    EXPECT_EQ("changed server 1: a\n", result.out);
    EXPECT_EQ(kDone, run({"db", "set", "2", "--host", "c", "--secret", "t", "--timeout", "7",
                          "--retries", "1"})
                         .status);
    const std::vector<lanyardctl::Server> expected = {{1, "a", "1645", "secret", "10", "3"},
                                                      {2, "c", "1812", "t", "7", "1"}};
    EXPECT_EQ(expected, lanyardctl::readServers(device_.db()));
    expectRefused({"db", "set", "a", "--host", "c"},
                  "the host 'c' is there already, in row 2, and the relay tells servers apart by "
                  "their host");
    expectRefused({"db", "set", "a", "--secret", ""}, "secret: is empty");
    expectRefused({"db", "set", "a"},
                  "name what is to be changed: --host, --port, --timeout, --retries, --secret");
    expectRefused({"db", "set", "nobody", "--port", "1"}, "there is no server 'nobody'", kNotFound);
    expectRefused({"db", "set", "7", "--port", "1"}, "there is no server with the row id 7",
                  kNotFound);
}

TEST_F(Commands, WaitsThatOutlastASupplicantAreWarnedOf) {
    const auto warning = [](const std::string &seconds) {
        return "lanyardctl: WARNING: the servers before the last one may take " + seconds +
               " s together, time-out * (retries + 1) each, and a supplicant gives up after 30 s, "
               "perhaps before the last one is asked; lower --timeout or --retries with "
               "'lanyardctl db set'\n";
    };
    const auto add = [this](const std::string &host, std::vector<std::string> options = {}) {
        options.insert(options.begin(), {"db", "add", host, "--secret", "s"});
        const ProgramResult result = run(options);
        EXPECT_EQ(kDone, result.status);
        return result.err;
    };
    EXPECT_EQ("", add("a", {"--timeout", "10", "--retries", "0"})) << "the last one does not count";
    EXPECT_EQ("", add("b", {"--timeout", "5", "--retries", "1"}));
    EXPECT_EQ(warning("20"), add("c"));
    EXPECT_EQ("", run({"db", "set", "a", "--timeout", "9"}).err);
    EXPECT_EQ("", run({"db", "set", "c", "--timeout", "300"}).err);

    const ProgramResult changed = run({"--json", "db", "set", "a", "--retries", "3"});
    EXPECT_EQ(kDone, changed.status);
    EXPECT_EQ(warning("46"), changed.err);
    EXPECT_EQ(json::parse(R"({"ok": true, "server":
                {"id": 1, "host": "a", "port": 1812, "timeout": 9, "retries": 3}})"),
              json::parse(changed.out));
    device_.change("DELETE FROM radiusClient");
    device_.change("INSERT INTO radiusClient VALUES('d', '1812', 's', 'long', '3')");
    EXPECT_EQ("", add("e")) << "a row that cannot be used is not asked";
}

TEST_F(Commands, DelDeletesByHostOrRowId) {
    for (const char *host : {"a", "b", "c", "c"}) {
        device_.change(insertion(host));
    }
    EXPECT_EQ("deleted server 1: a\n", run({"db", "del", "a"}).out);
    EXPECT_EQ("deleted server 2: b\n", run({"db", "del", "2"}).out);
    expectRefused({"db", "del", "a"}, "there is no server 'a'", kNotFound);
    expectRefused({"db", "del", "c"},
                  "the host 'c' stands in several rows; name one by its row id");
    EXPECT_EQ(kDone, run({"db", "del", "4"}).status);
    EXPECT_EQ(1U, lanyardctl::readServers(device_.db()).size());
}

TEST_F(Commands, ListShowsSecretsOnlyWhenAsked) {
    EXPECT_EQ("no servers\n", run({"db", "list"}).out);
    device_.change(insertion("a.example", "hidden"));
    device_.change(insertion("b", "q\"uote", 645));
    EXPECT_EQ(
        "ID  HOST       PORT  TIMEOUT  RETRIES\n"
        "1   a.example  1812  10       3\n"
        "2   b          645   10       3\n",
        run({"db", "list"}).out);
    EXPECT_EQ(
        "ID  HOST       PORT  TIMEOUT  RETRIES  SECRET\n"
        "1   a.example  1812  10       3        hidden\n"
        "2   b          645   10       3        q\"uote\n",
        run({"db", "list", "--secrets"}).out);
    const ProgramResult plain = run({"--json", "db", "list"});
    EXPECT_THAT(plain.out, Not(HasSubstr("hidden")));
    EXPECT_EQ(json::parse(plain.out), json::parse(R"({"ok": true, "servers": [
                {"id": 1, "host": "a.example", "port": 1812, "timeout": 10, "retries": 3},
                {"id": 2, "host": "b", "port": 645, "timeout": 10, "retries": 3}]})"));
    EXPECT_EQ("q\"uote",
              json::parse(run({"db", "list", "--secrets", "--json"}).out)["servers"][1]["secret"]);
}

TEST_F(Commands, ListShowsRowsThatCannotBeUsed) {
    device_.change("INSERT INTO radiusClient(authserver, authport) VALUES('a' || char(27), 'x')");
    device_.change("INSERT INTO radiusClient VALUES(CAST(X'ff' AS TEXT), '1', '\"\\', '1', '1')");
    EXPECT_THAT(run({"db", "list"}).out,
                AllOf(HasSubstr("1   a?"), HasSubstr("x     (none)"),
                      HasSubstr("\nserver 1 cannot be used: host: holds the octet 0x1b")));
    const json servers = json::parse(run({"--json", "db", "list", "--secrets"}).out)["servers"];
    EXPECT_EQ("a\x1b", servers[0]["host"]);
    EXPECT_EQ("x", servers[0]["port"]);
    EXPECT_TRUE(servers[0]["timeout"].is_null());
    EXPECT_THAT(servers[0]["problem"].get<std::string>(), StartsWith("host: holds"));
    EXPECT_EQ("\xef\xbf\xbd", servers[1]["host"]);
    EXPECT_EQ("\"\\", servers[1]["secret"]);
}

TEST_F(Commands, JsonTellsFailuresOnStandardOutput) {
    const ProgramResult refused = run({"--json", "db", "del", "a\"b"});
    EXPECT_EQ(kNotFound, refused.status);
    EXPECT_EQ("", refused.err);
    EXPECT_EQ(json({{"ok", false}, {"error", "there is no server 'a\"b'"}}),
              json::parse(refused.out));
    const ProgramResult added = run({"db", "add", "a", "--secret", "s", "--json"});
    EXPECT_EQ(json::parse(R"({"ok": true, "server":
                {"id": 1, "host": "a", "port": 1812, "timeout": 3, "retries": 1}})"),
              json::parse(added.out));
}

TEST_F(Commands, WrongCommandLinesAreRefused) {
    for (const std::vector<std::string> &arguments : std::vector<std::vector<std::string>>{
             {},
             {"db"},
             {"relay"},
             {"relay", "list"},
             {"relay", "status", "b"},
             {"unknown"},
             {"db", "unknown"},
             {"db", "add"},
             {"db", "del"},
             {"db", "list", "--unknown"},
             {"db", "add", "a", "b", "--secret", "s"},
             {"db", "add", "a", "--secret"},
             {"db", "add", "a", "--secret", "s", "--secret-file", "-"}}) {
        const ProgramResult result = run(arguments);
        EXPECT_EQ(kRefused, result.status) << testing::PrintToString(arguments);
        EXPECT_THAT(result.err, StartsWith("lanyardctl: "));
        EXPECT_EQ("", result.out);

        auto forPrograms = arguments;
        forPrograms.insert(forPrograms.begin(), "--json");
        const ProgramResult document = run(forPrograms);
        EXPECT_EQ(kRefused, document.status) << testing::PrintToString(arguments);
        EXPECT_EQ("", document.err) << testing::PrintToString(arguments);
        EXPECT_EQ(json({{"ok", false}, {"error", result.err.substr(12, result.err.size() - 13)}}),
                  json::parse(document.out, nullptr, false));
    }
}

TEST_F(Commands, UnknownWordsAreNamed) {
    expectRefused({"db", "lst"}, "The following argument was not expected: lst");
    expectRefused({"serve"}, "The following argument was not expected: serve");
}

TEST_F(Commands, HelpSaysWhatThereIs) {
    EXPECT_THAT(run({"--help"}).out, HasSubstr("Exit status:\n  0  done"));
    EXPECT_EQ(kDone, run({"--help"}).status);
    const std::string commands = run({"db", "--help"}).out;
    for (const char *command : {"init", "add", "set", "del", "list", "serve", "replay"}) {
        EXPECT_THAT(commands, HasSubstr("\n  " + std::string(command) + " "));
    }
    EXPECT_THAT(run({"relay", "--help"}).out, HasSubstr("\n  status "));
    EXPECT_THAT(run({"db", "add", "--help"}).out, HasSubstr("--secret-file FILE"));
    EXPECT_THAT(run({"db", "add", "--help"}).out, HasSubstr("1 to 300; 3 without it"));
    EXPECT_THAT(run({"db", "set", "--help"}).out, Not(HasSubstr("without it")));
    EXPECT_EQ("lanyardctl 2.0.0\n", run({"--version"}).out);
}

TEST_F(Commands, InitMakesTheDefaultDatabaseUnderThePlatformsRoot) {
    const std::vector<std::string> settings = {"PAL_ROOT=" + device_.root().folder().string()};
    ProgramResult result = runProgram({LANYARDCTL, "db", "list"}, settings);
    const std::string file = device_.root().path("/var/lib/lanyard/config.db").string();
    EXPECT_EQ(kFailed, result.status);
    EXPECT_EQ("lanyardctl: there is no database " + file + "; 'lanyardctl db init' makes one\n",
              result.err);
    for (int i = 0; i < 2; ++i) {
        result = runProgram({LANYARDCTL, "db", "init"}, settings);
        EXPECT_EQ(kDone, result.status);
        EXPECT_EQ("the database " + file + " is ready\n", result.out);
    }
    EXPECT_EQ(0600U, device_.root().mode("/var/lib/lanyard/config.db"));
    EXPECT_EQ("no servers\n", runProgram({LANYARDCTL, "db", "list"}, settings).out);
}

TEST_F(Commands, InitTellsOfADictionaryThatDoesNotLoad) {
    const std::string ready = "the database " + device_.file() + " is ready";
    const auto problem = [](const std::string &path) {
        return "the dictionary '" + path +
               "' cannot be loaded, and no relay starts without it; 'lanyardctl db init "
               "--dictionary FILE' names another one";
    };
    EXPECT_EQ("", run({"db", "init"}).err);

    ProgramResult result = run({"db", "init", "--dictionary", "/none.dict"});
    EXPECT_EQ(kDone, result.status);
    EXPECT_EQ(ready + "\n", result.out);
    EXPECT_THAT(result.err, AllOf(HasSubstr("No such file or directory"),
                                  HasSubstr("\nlanyardctl: PROBLEM: " + problem("/none.dict"))));
    device_.root().write("/wrong.dict", "ATTRIBUTE Nothing\n");
    result = run({"--json", "db", "init", "--dictionary", "/wrong.dict"});
    EXPECT_EQ(kDone, result.status);
    EXPECT_EQ(json({{"ok", true}, {"done", ready}, {"problem", problem("/wrong.dict")}}),
              json::parse(result.out));
    device_.change("UPDATE environment SET value=NULL");
    EXPECT_THAT(run({"db", "init"}).err, HasSubstr(problem("")));
    EXPECT_EQ("", run({"db", "init", "--dictionary", "/nexa2.0/etc/radius.dict"}).err);
}

TEST_F(Commands, ADatabaseThatIsOutOfReachIsToldFromOneThatIsMissing) {
    const std::string file = device_.root().path("/loop/config.db").string();
    std::filesystem::create_symlink("loop", device_.root().path("/loop"));
    const ProgramResult result = runProgram({LANYARDCTL, "db", "list", "-d", file}, {});
    EXPECT_EQ(kFailed, result.status);
    EXPECT_EQ(
        "lanyardctl: cannot open the database " + file + ": Too many levels of symbolic links\n",
        result.err);
}

TEST_F(Commands, InitRefusesAFileThatIsNoDatabase) {
    device_.root().write("/garbage", std::string(4096, 'x'));
    const std::string file = device_.root().path("/garbage").string();
    for (const char *command : {"init", "list", "serve", "replay"}) {
        const ProgramResult result = runProgram({LANYARDCTL, "db", command, "-d", file},
                                                {"PAL_ROOT=" + device_.root().folder().string()});
        EXPECT_EQ(kFailed, result.status) << command;
        EXPECT_EQ("lanyardctl: database: file is not a database\n", result.err) << command;
    }
    EXPECT_EQ(std::string(4096, 'x'), device_.root().read("/garbage"));
}

TEST_F(Commands, InitDropsWhatEarlierVersionsKept) {
    for (const char *table : {"lanyardChange", "lanyardHost", "lanyardRelay", "lanyardSlot"}) {
        device_.change(std::string("CREATE TABLE ") + table + "(secret TEXT)");
    }
    for (const char *event : {"Inserted", "Updated", "Deleted"}) {
        device_.change(std::string("CREATE TRIGGER lanyard") + event +
                       " AFTER UPDATE ON radiusClient BEGIN "
                       "INSERT INTO lanyardChange VALUES(OLD.authsecret); END");
    }
    device_.change(insertion("a"));
    EXPECT_EQ(kDone, run({"db", "init"}).status);
    EXPECT_EQ(0, device_.db().number("SELECT count(*) FROM sqlite_master WHERE name LIKE 'lan%'"));
    EXPECT_EQ(1U, lanyardctl::readServers(device_.db()).size());
}

TEST_F(Commands, ATableWithoutItsColumnsIsNamed) {
    device_.change("ALTER TABLE radiusClient RENAME COLUMN authport TO port");
    EXPECT_EQ("lanyardctl: the table radiusClient has no column authport\n",
              run({"db", "init"}).err);
    expectFails({"db", "list"}, "database: no such column: authport");
    device_.change("DROP TABLE radiusClient");
    expectFails({"db", "list"}, "database: no such table: radiusClient");
    EXPECT_EQ(kDone, run({"db", "init"}).status);
    EXPECT_EQ(kDone, run({"db", "list"}).status);
}

}  // namespace
}  // namespace lanyard::test::command_test
