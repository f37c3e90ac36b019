// The configuration file, written from the table "radiusClient".
#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/test.h"
#include "tests/unit/device/fixture.h"
#include "tests/unit/device/system_calls.h"

namespace lanyard::test::conf_file_test {
namespace {

using testing::ElementsAre;

constexpr const char *kConfFile = "/var/radius.conf";
constexpr const char *kDictionaryLine = "\ndictionary        /nexa2.0/etc/radius.dict\n";

// The connection of radiusMgmtInit() is not open: the file is written without it.
class ConfFile : public MgmtTest {
  protected:
    void SetUp() override {
        MgmtTest::SetUp();
        root.makeFolder("/var");
    }

    int generate(int opCode = RAD_DB_UPDATE) {
        log.clear();
        return radiusClientTblHandler(database.path(), opCode);
    }

    static std::string line(const std::string &text) {
        return "device trace radiusClientTblHandler> " + text;
    }
    static std::string status(int value) {
        return line("status(radiusClientTblHandler) = " + std::to_string(value) + " ");
    }
};

TEST_F(ConfFile, HasAllServersInOneLineAndTheDictionary) {
    (void)database.addServer("'a', '1812', 's1', '5', '3'");
    (void)database.addServer("'b', '1645', 's2', '10', '2'");
    EXPECT_EQ(0, generate());
    EXPECT_EQ(
        "authserver        a:1812:5:3:s1, b:1645:10:2:s2"
        "\ndictionary        /nexa2.0/etc/radius.dict\n",
        root.read(kConfFile));
    EXPECT_LOG(log, line("Making radius.conf ... "), line("Making radius.conf ... "), status(0));
}

TEST_F(ConfFile, IsTheSameForEveryChange) {
    (void)database.addServer("'a', '1812', 's1', '5', '3'");
    for (const int opCode : {RAD_DB_DELETE, RAD_DB_INSERT, RAD_DB_UPDATE}) {
        SCOPED_TRACE(opCode);
        root.remove(kConfFile);
        EXPECT_EQ(0, generate(opCode));
        EXPECT_EQ(std::string("authserver        a:1812:5:3:s1") + kDictionaryLine,
                  root.read(kConfFile));
        EXPECT_LOG(log, line("Making radius.conf ... "), status(0));
    }
}

TEST_F(ConfFile, IsNotTouchedByAnUnknownChange) {
    (void)database.addServer("'a', '1812', 's1', '5', '3'");
    root.write(kConfFile, "as it was");
    for (const int opCode : {7, 0, -1, 19}) {
        EXPECT_EQ(-1, generate(opCode));
        EXPECT_LOG(log, line("Invalid input opcode: " + std::to_string(opCode) + " "), status(-1));
    }
    EXPECT_EQ("as it was", root.read(kConfFile));
    EXPECT_EQ(0644U, root.mode(kConfFile));
}

TEST_F(ConfFile, IsNotTouchedWhenTheQueryFails) {
    root.write(kConfFile, "as it was");
    database.run("DROP TABLE radiusClient");
    const auto failed = line("sqlite query for 'SELECT * from radiusClient ' failed ");
    EXPECT_EQ(-1, generate());
    EXPECT_LOG(log, failed, status(-1));

    log.clear();
    EXPECT_EQ(-1, radiusClientTblHandler(root.path("/none.db").c_str(), RAD_DB_UPDATE));
    EXPECT_LOG(log, failed, status(-1));
    EXPECT_FALSE(root.exists("/none.db"));

    log.clear();
    EXPECT_EQ(-1, radiusClientTblHandler(nullptr, RAD_DB_UPDATE));
    EXPECT_LOG(log, failed, status(-1));
    EXPECT_EQ("as it was", root.read(kConfFile));
}

TEST_F(ConfFile, IsDeletedWhenTheTableIsEmpty) {
    root.write(kConfFile, "as it was");
    EXPECT_EQ(0, generate(RAD_DB_DELETE));
    EXPECT_FALSE(root.exists(kConfFile));
    EXPECT_LOG(log, status(0));
    EXPECT_EQ(0, generate(RAD_DB_DELETE)) << "also when there is none";
    EXPECT_LOG(log, status(0));
}

TEST_F(ConfFile, ThatCannotBeOpenedIsTold) {
    (void)database.addServer("'a', '1812', 's1', '5', '3'");
    root.remove("/var");
    EXPECT_EQ(-1, generate());
    EXPECT_LOG(log, line("Couldn't open file for writing: /var/radius.conf "), status(-1));
    root.makeFolder(kConfFile);
    EXPECT_EQ(-1, generate());
    EXPECT_LOG(log, line("Couldn't open file for writing: /var/radius.conf "), status(-1));
}

TEST_F(ConfFile, IsItsOwnersAloneWhateverTheUmask) {
    (void)database.addServer("'a', '1812', 's1', '5', '3'");
    for (const mode_t mask : {0U, 022U, 077U, 0777U}) {
        SCOPED_TRACE(mask);
        root.remove(kConfFile);
        const mode_t before = umask(mask);
        EXPECT_EQ(0, generate());
        umask(before);
        EXPECT_EQ(0600U, root.mode(kConfFile));
    }
}

TEST_F(ConfFile, BecomesItsOwnersAlone) {
    (void)database.addServer("'a', '1812', 's1', '5', '3'");
    for (const mode_t mode : {0644U, 0666U, 0400U}) {
        root.write(kConfFile, "as it was", mode);
        EXPECT_EQ(0, generate());
        EXPECT_EQ(0600U, root.mode(kConfFile));
        EXPECT_EQ(std::string("authserver        a:1812:5:3:s1") + kDictionaryLine,
                  root.read(kConfFile));
    }
}

TEST_F(ConfFile, HasNothingOfALongerOneBefore) {
    root.write(kConfFile, std::string(4096, 'x'));
    (void)database.addServer("'a', '1812', 's1', '5', '3'");
    EXPECT_EQ(0, generate());
    EXPECT_EQ(std::string("authserver        a:1812:5:3:s1") + kDictionaryLine,
              root.read(kConfFile));
}

TEST_F(ConfFile, IsReplacedWhole) {
    (void)database.addServer("'a', '1812', 's1', '5', '3'");
    root.write(kConfFile, "as it was");
    std::ifstream reader(root.path(kConfFile));
    EXPECT_EQ(0, generate());
    EXPECT_EQ("as it was", std::string(std::istreambuf_iterator<char>(reader), {}));
    EXPECT_EQ(std::string("authserver        a:1812:5:3:s1") + kDictionaryLine,
              root.read(kConfFile));
    EXPECT_THAT(root.list("/var"), ElementsAre("radius.conf"));
}

TEST_F(ConfFile, TakesNothingFromOneThatWasLeftHalfWritten) {
    (void)database.addServer("'a', '1812', 's1', '5', '3'");
    root.write("/var/radius.conf.new", std::string(4096, 'x'), 0644);
    EXPECT_EQ(0, generate());
    EXPECT_EQ(std::string("authserver        a:1812:5:3:s1") + kDictionaryLine,
              root.read(kConfFile));
    EXPECT_EQ(0600U, root.mode(kConfFile));
    EXPECT_THAT(root.list("/var"), ElementsAre("radius.conf"));
}

TEST_F(ConfFile, HasTheRowsInTheirOrder) {
    for (const char *host : {"'c'", "'a'", "'b'"}) {
        (void)database.addServer(std::string(host) + ", '1', 's', '2', '3'");
    }
    EXPECT_EQ(0, generate());
    EXPECT_EQ(std::string("authserver        c:1:2:3:s, a:1:2:3:s, b:1:2:3:s") + kDictionaryLine,
              root.read(kConfFile));
}

TEST_F(ConfFile, FindsTheColumnsByName) {
    database.run(
        "DROP TABLE radiusClient; CREATE TABLE radiusClient (authretries INTEGER, note TEXT,"
        " authsecret TEXT, authport INTEGER, authtimeout INTEGER, authserver TEXT);"
        "INSERT INTO radiusClient VALUES (3, NULL, 's1', 1812, 5, 'a')");
    EXPECT_EQ(0, generate());
    EXPECT_EQ(std::string("authserver        a:1812:5:3:s1") + kDictionaryLine,
              root.read(kConfFile));
}

TEST_F(ConfFile, HasNumbersAsTheyBegin) {
    (void)database.addServer("'a', 'radius', 's1', ' 7s', '-1'");
    (void)database.addServer("'b', '', 's2', '+4', '0x10'");
    EXPECT_EQ(0, generate());
    EXPECT_EQ(std::string("authserver        a:0:7:-1:s1, b:0:4:0:s2") + kDictionaryLine,
              root.read(kConfFile));
}

TEST_F(ConfFile, KeepsTextsThatLookLikeFormats) {
    (void)database.addServer("'%s%n', '1812', '%d%x', '5', '3'");
    EXPECT_EQ(0, generate());
    EXPECT_EQ(std::string("authserver        %s%n:1812:5:3:%d%x") + kDictionaryLine,
              root.read(kConfFile));
}

TEST_F(ConfFile, EndsBeforeTheFirstRowThatIsNoServer) {
    (void)database.addServer("'a', '1812', 's1', '5', '3'");
    (void)database.addServer("'b', '1645', NULL, '10', '2'");
    (void)database.addServer("'c', '1812', 's3', '5', '3'");
    EXPECT_EQ(-1, generate());
    EXPECT_EQ("authserver        a:1812:5:3:s1, ", root.read(kConfFile));
    EXPECT_EQ(0600U, root.mode(kConfFile));
    EXPECT_LOG(log, line("Making radius.conf ... "), line("Making radius.conf ... "), status(-1));
}

TEST_F(ConfFile, EndsAtEveryColumnThatIsNull) {
    for (const char *row :
         {"NULL, '1', 's', '2', '3'", "'a', NULL, 's', '2', '3'", "'a', '1', NULL, '2', '3'",
          "'a', '1', 's', NULL, '3'", "'a', '1', 's', '2', NULL",
          // Without them other fields would be taken for host and secret.
          "'', '1', 's', '2', '3'", "'a', '1', '', '2', '3'"}) {
        SCOPED_TRACE(row);
        database.run("DELETE FROM radiusClient");
        (void)database.addServer(row);
        EXPECT_EQ(-1, generate());
        EXPECT_EQ("authserver        ", root.read(kConfFile));
    }
}

TEST_F(ConfFile, EndsWhereAColumnIsMissing) {
    (void)database.addServer("'a', '1812', 's1', '5', '3'");
    for (const char *column :
         {"authserver", "authport", "authsecret", "authtimeout", "authretries"}) {
        SCOPED_TRACE(column);
        const std::string renamed = "ALTER TABLE radiusClient RENAME COLUMN ";
        database.run(renamed + column + " TO elsewhere");
        EXPECT_EQ(-1, generate());
        EXPECT_EQ("authserver        ", root.read(kConfFile));
        database.run(renamed + "elsewhere TO " + column);
    }
}

TEST_F(ConfFile, ThatDoesNotGetToTheDiskIsAFailure) {
    (void)database.addServer("'a', '1812', 's1', '5', '3'");
    root.write(kConfFile, "as it was");
    const FailingCall failure("palFileClose", ENOSPC);
    EXPECT_EQ(-1, generate());
    EXPECT_TRUE(failure.happened());
    EXPECT_EQ("as it was", root.read(kConfFile));
    EXPECT_THAT(root.list("/var"), ElementsAre("radius.conf"));
    EXPECT_LOG(log, line("Making radius.conf ... "), status(-1));
}

TEST_F(ConfFile, IsOnTheDiskBeforeItTakesThePlaceOfTheOther) {
    (void)database.addServer("'a', '1812', 's1', '5', '3'");
    root.write(kConfFile, "as it was");
    const FailingCall failure("fsync", EIO);
    EXPECT_EQ(-1, generate());
    EXPECT_TRUE(failure.happened());
    EXPECT_EQ("as it was", root.read(kConfFile));
    EXPECT_THAT(root.list("/var"), ElementsAre("radius.conf"));
}

TEST_F(ConfFile, OfSeveralWritersIsThatOfOne) {
    constexpr int kWriters = 4;
    constexpr int kRounds = 100;
    (void)database.addServer("'a', '1812', 's1', '5', '3'");
    std::array<pid_t, kWriters> writers{};
    for (pid_t &writer : writers) {
        writer = fork();
        if (writer == 0) {
            int round = 0;
            while (round < kRounds && radiusClientTblHandler(database.path(), RAD_DB_UPDATE) == 0) {
                ++round;
            }
            _exit(round == kRounds ? 0 : 1);
        }
    }
    for (const pid_t writer : writers) {
        int status = -1;
        ASSERT_EQ(writer, waitpid(writer, &status, 0));
        EXPECT_EQ(0, status);
    }
    EXPECT_EQ(std::string("authserver        a:1812:5:3:s1") + kDictionaryLine,
              root.read(kConfFile));
    EXPECT_THAT(root.list("/var"), ElementsAre("radius.conf"));
}

TEST_F(ConfFile, ThatIsALinkStaysOne) {
    (void)database.addServer("'a', '1812', 's1', '5', '3'");
    root.makeFolder("/data");
    std::filesystem::create_symlink("../data/radius.conf", root.path(kConfFile));
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(0, generate()) << "a link to nothing, and to a file";
        EXPECT_TRUE(std::filesystem::is_symlink(root.path(kConfFile)));
        EXPECT_EQ(std::string("authserver        a:1812:5:3:s1") + kDictionaryLine,
                  root.read("/data/radius.conf"));
        EXPECT_EQ(0600U, root.mode("/data/radius.conf"));
        root.write("/data/radius.conf", std::string(4096, 'x'));
    }
    EXPECT_THAT(root.list("/var"), ElementsAre("radius.conf"));
}

TEST_F(ConfFile, LeavesNoDescriptorOpen) {
    (void)database.addServer("'a', '1812', 's1', '5', '3'");
    const size_t before = openDescriptors();
    EXPECT_EQ(0, generate());
    EXPECT_EQ(before, openDescriptors());
    (void)database.addServer("'b', '1645', NULL, '10', '2'");
    EXPECT_EQ(-1, generate());
    EXPECT_EQ(before, openDescriptors());
}

TEST_F(ConfFile, ConfiguresTheLibrary) {
    (void)database.addServer("'a', '1812', 's1', '5', '3'");
    (void)database.addServer("'b', 'none', 's2', '7', '0'");
    ASSERT_EQ(0, generate());
    EXPECT_EQ(0, radConfigure(kConfFile));
    EXPECT_EQ(2, radConfGetNumServers(RAD_SERVER_AUTH));
    EXPECT_THAT(slots(RAD_SERVER_AUTH)[0], Holds({"a", 1812, 5, 3, "s1"}));
    EXPECT_THAT(slots(RAD_SERVER_AUTH)[1], Holds({"b", 1812, 7, 0, "s2"}))
        << "a port that is no number is the default one";
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_ACCT));
    const auto number = [](uint32_t index) { return *static_cast<int32_t *>(radConfGet(index)); };
    EXPECT_EQ(10, number(RAD_CONF_TIMEOUT));
    EXPECT_EQ(3, number(RAD_CONF_RETRIES));
    EXPECT_STREQ(kDictionary, static_cast<const char *>(radConfGet(RAD_CONF_DICTIONARY)));
}

TEST_F(ConfFile, LeavesTheConfigurationThatIsThere) {
    addAuthServers(1);
    (void)database.addServer("'a', '1812', 's1', '5', '3'");
    EXPECT_EQ(0, generate());
    EXPECT_THAT(hosts(), ElementsAre("h0", "", "", "", "", "", "", ""));
}

}  // namespace
}  // namespace lanyard::test::conf_file_test
