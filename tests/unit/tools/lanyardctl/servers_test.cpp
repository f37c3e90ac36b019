// What rows are refused, and in which words.
#include "tools/lanyardctl/servers.h"

#include <gmock/gmock.h>

#include "tests/support/temporary_root.h"

namespace lanyardctl {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Optional;
using testing::StartsWith;

Server server(const std::string &host = "radius.example", int64_t id = 1) {
    return {.id = id,
            .host = host,
            .port = "1812",
            .secret = "secret",
            .timeout = "10",
            .retries = "3"};
}

TEST(Server, ThatIsCompleteCanBeUsed) {
    for (const char *host : {"radius.example", "192.0.2.1", "a", "r-1_x.example", "1st.example"}) {
        EXPECT_EQ(std::nullopt, problemOf(server(host))) << host;
    }
    Server edge = server();
    edge.port = "0";
    edge.timeout = "300";
    edge.retries = "0";
    edge.secret = "s3cr#t'\";--\xc3\xa4";
    EXPECT_EQ(std::nullopt, problemOf(edge));
}

TEST(Server, HostThatIsNoNameOrAddressIsRefused) {
    const auto problem = [](const std::string &host) { return problemOf(server(host)); };
    const std::string rest = "; a host is a name or a dotted IPv4 address";
    EXPECT_EQ("host: is empty", problem(""));
    EXPECT_EQ("host: holds a colon" + rest, problem("2001:db8::1"));
    EXPECT_EQ("host: holds a comma" + rest, problem("a,b"));
    EXPECT_EQ("host: holds a blank" + rest, problem("a b"));
    EXPECT_EQ("host: holds a tab" + rest, problem("a\tb"));
    EXPECT_EQ("host: holds a newline" + rest, problem("a\n"));
    EXPECT_EQ("host: holds a carriage return" + rest, problem("a\r"));
    EXPECT_EQ("host: holds the octet 0x1b" + rest, problem("a\x1b[2J"));
    EXPECT_EQ("host: holds the octet 0xc3" + rest, problem("r\xc3\xa4"
                                                           "dius"));
    EXPECT_EQ("host: holds the character '/'" + rest, problem("a/b"));
    EXPECT_EQ("host: a part of the name is empty", problem("a..b"));
    EXPECT_EQ("host: a part of the name is empty", problem("example."));
    EXPECT_EQ("host: a part of the name starts or ends with '-'", problem("-a.example"));
    EXPECT_EQ("host: a part of the name starts or ends with '-'", problem("a-.example"));
    EXPECT_EQ("host: a part of the name is longer than 63 characters",
              problem(std::string(64, 'a')));
    EXPECT_EQ("host: is longer than 253 characters",
              problem(std::string(120, 'a') + "." + std::string(133, 'b')));
    EXPECT_EQ("host: '192.0.2.256' is no dotted IPv4 address", problem("192.0.2.256"));
    EXPECT_EQ("host: '192.0.2' is no dotted IPv4 address", problem("192.0.2"));
    EXPECT_EQ("host: '3' is no dotted IPv4 address", problem("3"));
    Server none = server();
    none.host.reset();
    EXPECT_EQ("host: is empty", problemOf(none));
}

TEST(Server, SecretThatAnEntryCannotCarryIsRefused) {
    const auto problem = [](const std::optional<std::string> &secret) {
        Server refused = server();
        refused.secret = secret;
        return problemOf(refused);
    };
    const std::string rest = ", which the syntax of server entries cannot carry";
    EXPECT_EQ("secret: is empty", problem(""));
    EXPECT_EQ("secret: is empty", problem(std::nullopt));
    EXPECT_EQ("secret: holds a colon" + rest, problem("a:b"));
    EXPECT_EQ("secret: holds a comma" + rest, problem("a,b"));
    EXPECT_EQ("secret: holds a blank" + rest, problem("a b"));
    EXPECT_EQ("secret: holds a tab" + rest, problem("a\tb"));
    EXPECT_EQ("secret: holds a newline" + rest, problem("a\nb"));
    EXPECT_EQ("secret: holds the octet 0x00" + rest, problem(std::string("a\0b", 3)));
    EXPECT_EQ("secret: holds the octet 0x7f" + rest, problem("a\x7f"));
    EXPECT_EQ("secret: is no UTF-8 text", problem("a\xff"));
}

TEST(Server, NumberOutOfBoundsIsRefused) {
    Server refused = server();
    for (const char *port :
         {"65536", "-2", "1812x", " 1812", "+5", "99999999999999999999", "0x1"}) {
        refused.port = port;
        EXPECT_EQ("port: '" + std::string(port) + "' is no whole number from 0 to 65535",
                  problemOf(refused));
    }
    refused.port = "1812\n";
    EXPECT_EQ("port: holds a newline; it is no whole number from 0 to 65535", problemOf(refused));
    refused.port = "\x1b[2J";
    EXPECT_EQ("port: holds the octet 0x1b; it is no whole number from 0 to 65535",
              problemOf(refused));
    refused.port = "";
    EXPECT_EQ("port: is empty; it is no whole number from 0 to 65535", problemOf(refused));
    refused = server();
    for (const char *timeout : {"0", "301"}) {
        refused.timeout = timeout;
        EXPECT_EQ("time-out: '" + std::string(timeout) + "' is no whole number from 1 to 300",
                  problemOf(refused));
    }
    refused = server();
    refused.retries = "21";
    EXPECT_EQ("retries: '21' is no whole number from 0 to 20", problemOf(refused));
    refused = server();
    refused.timeout = "-1";
    EXPECT_THAT(problemOf(refused),
                Optional(StartsWith("time-out: -1 does not stand for the default here")));
    refused = server();
    refused.retries = "-1";
    EXPECT_THAT(problemOf(refused), Optional(StartsWith("retries: -1 does not stand")));
}

TEST(Server, RowIdMustFitANotice) {
    EXPECT_EQ(std::nullopt, problemOf(server("a", 2147483647)));
    EXPECT_EQ("the row id 2147483648 is not from 1 to 2147483647",
              problemOf(server("a", 2147483648)));
    EXPECT_EQ("the row id 0 is not from 1 to 2147483647", problemOf(server("a", 0)));
}

TEST(Table, RelayGetsEachHostOnceAndEightInAll) {
    std::vector<Server> table = {server("a", 1), server("a", 2), server("", 3)};
    for (int64_t id = 4; id < 13; ++id) {
        table.push_back(server("h" + std::to_string(id), id));
    }
    std::vector<int64_t> ids;
    for (const Server &usable : usableServers(table)) {
        ids.push_back(usable.id);
    }
    EXPECT_THAT(ids, ElementsAre(1, 4, 5, 6, 7, 8, 9, 10));
    const auto problems = problemsOf(table);
    EXPECT_THAT(problems[1], Optional(HasSubstr("'a' stands in an earlier row")));
    EXPECT_EQ("host: is empty", problems[2]);
    EXPECT_THAT(problems[10], Optional(HasSubstr("eight servers already")));
}

TEST(Table, FileCarriesEightServersOnOneLine) {
    std::vector<Server> table = {server("a", 1), server("a", 2)};
    EXPECT_EQ(std::nullopt, fileProblemOf(table)) << "the file may have a host twice";
    table[1].secret.reset();
    EXPECT_EQ("row 2: secret: is empty", fileProblemOf(table));
    table.assign(9, server());
    EXPECT_EQ("there are 9 servers, and the library has place for eight", fileProblemOf(table));

    // keyword 18, h:1812:10:3: 12, secret: 480 characters make 510.
    table = {server("h", 1)};
    table[0].secret = std::string(480, 's');
    EXPECT_EQ(std::nullopt, fileProblemOf(table));
    table[0].secret->push_back('s');
    EXPECT_THAT(fileProblemOf(table),
                Optional(StartsWith("the servers would take 511 characters")));
}

TEST(Edit, IsCheckedAgainstTheOtherRows) {
    std::vector<Server> table = {server("a", 1), server("b", 2)};
    EXPECT_EQ(std::nullopt, editProblemOf(table, server("c", 0)));
    EXPECT_EQ(std::nullopt, editProblemOf(table, server("a", 1))) << "a row beside itself";
    EXPECT_THAT(editProblemOf(table, server("b", 1)),
                Optional(StartsWith("the host 'b' is there already, in row 2")));
    for (int64_t id = 3; id < 9; ++id) {
        table.push_back(server("h" + std::to_string(id), id));
    }
    EXPECT_THAT(editProblemOf(table, server("c", 0)), Optional(HasSubstr("eight servers already")));
    EXPECT_EQ(std::nullopt, editProblemOf(table, server("c", 8)));
    Server longer = server("h8", 8);
    longer.secret = std::string(400, 's');
    EXPECT_THAT(editProblemOf(table, longer), Optional(HasSubstr("has place for 510")));
}

class Prepare : public testing::Test {
  protected:
    const lanyard::test::TemporaryRoot root_;
    const Database db_ = Database::create(root_.path("/d.db").string());
};

TEST_F(Prepare, TablesOfADevice_KeepsRowsColumnsAndDictionary) {
    db_.run(
        "CREATE TABLE radiusClient(name TEXT, authretries TEXT, authserver TEXT, authport TEXT, "
        "authsecret TEXT, authtimeout TEXT)");
    db_.run("INSERT INTO radiusClient VALUES('n', '3', 'a', '1812', 's', '5')");
    db_.run("CREATE TABLE environment(name TEXT, value TEXT)");
    db_.run("INSERT INTO environment VALUES('RADIUS_DICTIONARY', '/other.dict')");
    prepareDatabase(db_, std::nullopt);
    EXPECT_EQ((std::vector<Server>{{1, "a", "1812", "s", "5", "3"}}), readServers(db_));
    EXPECT_THAT(readColumns(db_), ElementsAre("name", "authretries", "authserver", "authport",
                                              "authsecret", "authtimeout"));
    EXPECT_EQ("/other.dict", readDictionary(db_));
}

TEST_F(Prepare, TableWithoutAColumn_FailsWithNothingHalfDone) {
    db_.run("CREATE TABLE radiusClient(authserver TEXT, authport TEXT, authsecret TEXT)");
    EXPECT_THAT(
        [this] { prepareDatabase(db_, std::nullopt); },
        testing::ThrowsMessage<Failure>("the table radiusClient has no column authtimeout"));
    EXPECT_EQ(1, db_.number("SELECT count(*) FROM sqlite_master"));
}

TEST_F(Prepare, PreparedDatabase_ChangesNothingButANamedDictionary) {
    prepareDatabase(db_, std::nullopt);
    EXPECT_EQ(kDefaultDictionary, readDictionary(db_));
    Server added = server("radius.example", 0);
    storeServer(db_, added);
    const auto before = db_.number("SELECT sum(length(sql)) FROM sqlite_master");
    prepareDatabase(db_, "/mine.dict");
    EXPECT_EQ(before, db_.number("SELECT sum(length(sql)) FROM sqlite_master"));
    EXPECT_EQ(1, db_.number("SELECT count(*) FROM environment"));
    EXPECT_EQ("/mine.dict", readDictionary(db_));
    EXPECT_EQ((std::vector<Server>{added}), readServers(db_));
}

TEST_F(Prepare, TextWithANul_EndsThere) {
    prepareDatabase(db_, std::nullopt);
    db_.run("INSERT INTO radiusClient(authserver) VALUES(CAST(X'610062' AS TEXT))");
    EXPECT_EQ("a", readServers(db_).at(0).host);
}

}  // namespace
}  // namespace lanyardctl
