// Changes that any program makes are recorded, with the row as it was.
#include "tools/lanyardctl/journal.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <lanyard/radius/mgmt.h>

#include "tests/unit/tools/lanyardctl/device.h"
#include "tools/lanyardctl/delivery.h"

namespace lanyardctl {
namespace {

using lanyard::test::Device;
using lanyard::test::insertion;
using lanyard::test::TemporaryRoot;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::ThrowsMessage;

const std::vector<std::string> kColumns = {"authserver", "authport", "authsecret", "authtimeout",
                                           "authretries"};

std::vector<std::string> summaries(const Database &db) {
    std::vector<std::string> texts;
    for (const Change &change : readChanges(db, 0)) {
        std::string text = std::to_string(change.operation) + " " + std::to_string(change.row);
        for (const std::string &value : change.oldValues) {
            text += " " + value;
        }
        texts.push_back(text);
    }
    return texts;
}

TEST(Journal, RecordsEveryChangeWithTheRowAsItWas) {
    const Device device;
    device.change(insertion("a"));
    device.change("UPDATE radiusClient SET authserver='b', authretries='5'");
    device.change("DELETE FROM radiusClient");
    EXPECT_THAT(summaries(device.db()),
                ElementsAre("18 1", "23 1 a 1812 secret 10 3", "9 1 b 1812 secret 10 5"));
    const auto changes = readChanges(device.db(), 0);
    EXPECT_THAT(changes[0].names, IsEmpty());
    EXPECT_EQ(kColumns, changes[1].names);
    EXPECT_EQ("a", *changes[1].oldValue("authserver"));
    EXPECT_EQ(nullptr, changes[1].oldValue("nothing"));
    EXPECT_THAT(readHosts(device.db()), ElementsAre("a", "b"));
}

TEST(Journal, LeavesNothingOfAChangeThatWasTakenBack) {
    const Device device;
    device.change("BEGIN");
    device.change(insertion("a"));
    device.change("ROLLBACK");
    EXPECT_THAT(summaries(device.db()), IsEmpty());
    EXPECT_THAT(readHosts(device.db()), IsEmpty());
}

TEST(Journal, TakesARowWithAnotherIdForAnotherRow) {
    const Device device;
    device.change(insertion("a"));
    device.change("UPDATE radiusClient SET rowid=7");
    EXPECT_THAT(summaries(device.db()), ElementsAre("18 1", "9 1 a 1812 secret 10 3", "18 7"));
}

TEST(Journal, ShowsNullAsEmptyTextAndCutsAtNul) {
    const Device device;
    device.change("INSERT INTO radiusClient(authserver) VALUES('a')");
    device.change("UPDATE radiusClient SET authserver='b' || char(0) || 'c'");
    device.change("DELETE FROM radiusClient");
    EXPECT_THAT(summaries(device.db()), ElementsAre("18 1", "23 1 a    ", "9 1 b    "));
}

TEST(Journal, WorksUnderEveryConflictClause) {
    const Device device;
    device.change(insertion("a"));
    for (const char *clause : {"ABORT", "FAIL", "IGNORE", "REPLACE", "ROLLBACK"}) {
        device.change("UPDATE OR " + std::string(clause) + " radiusClient SET authserver='a'");
        device.change("INSERT OR " + std::string(clause) +
                      " INTO radiusClient(authserver) VALUES('a')");
    }
    // 1 insert, 5 inserts, and updates of 1 to 5 rows
    EXPECT_EQ(1U + 5U + 15U, summaries(device.db()).size());
    EXPECT_THAT(readHosts(device.db()), ElementsAre("a"));
}

TEST(Journal, RecordsColumnsThatTheDeviceAddsOnceInitRanAgain) {
    const Device device;
    device.change(insertion("a"));
    device.change("ALTER TABLE radiusClient ADD COLUMN comment TEXT DEFAULT 'none'");
    EXPECT_THAT([&] { checkJournal(device.db()); },
                ThrowsMessage<Failure>(HasSubstr("does not record changes of radiusClient; run "
                                                 "'lanyardctl db init' on it")));
    prepareDatabase(device.db(), std::nullopt);
    checkJournal(device.db());
    device.change("DELETE FROM radiusClient");
    EXPECT_THAT(summaries(device.db()), ElementsAre("18 1", "18 1", "9 1 a 1812 secret 10 3 none"));
}

TEST(Journal, CountsRowsThatWereThereBeforeAsInserted) {
    const TemporaryRoot root;
    const Database db = Database::create(root.path("/d.db").string());
    db.run(
        "CREATE TABLE radiusClient(name TEXT, authretries TEXT, authserver TEXT, authport TEXT, "
        "authsecret TEXT, authtimeout TEXT)");
    db.run("INSERT INTO radiusClient VALUES('n', '3', 'a', '1812', 's', '5')");
    db.run("CREATE TABLE environment(name TEXT, value TEXT)");
    db.run("INSERT INTO environment VALUES('RADIUS_DICTIONARY', '/other.dict')");
    prepareDatabase(db, std::nullopt);
    EXPECT_THAT(summaries(db), ElementsAre("18 1"));
    EXPECT_THAT(readHosts(db), ElementsAre("a"));
    db.run("DELETE FROM radiusClient");
    EXPECT_THAT(summaries(db), ElementsAre("18 1", "9 1 n 3 a 1812 s 5"));
    Statement dictionary = db.prepare("SELECT value FROM environment");
    ASSERT_TRUE(dictionary.step());
    EXPECT_EQ("/other.dict", dictionary.text(0));
}

TEST(Journal, RefusesATableWithoutTheColumns) {
    const TemporaryRoot root;
    const Database db = Database::create(root.path("/d.db").string());
    db.run("CREATE TABLE radiusClient(authserver TEXT, authport TEXT, authsecret TEXT)");
    EXPECT_THAT([&] { prepareDatabase(db, std::nullopt); },
                ThrowsMessage<Failure>("the table radiusClient has no column authtimeout"));
    EXPECT_EQ(1, db.number("SELECT count(*) FROM sqlite_master")) << "nothing half done";
}

TEST(Journal, InitChangesNothingTheSecondTime) {
    const Device device;
    device.change(insertion("a"));
    const auto before = device.db().number("SELECT sum(length(sql)) FROM sqlite_master");
    prepareDatabase(device.db(), std::nullopt);
    EXPECT_EQ(before, device.db().number("SELECT sum(length(sql)) FROM sqlite_master"));
    EXPECT_THAT(summaries(device.db()), ElementsAre("18 1"));
    EXPECT_EQ(1, device.db().number("SELECT count(*) FROM environment WHERE value="
                                    "'/nexa2.0/etc/radius.dict'"));
    prepareDatabase(device.db(), "/mine.dict");
    EXPECT_EQ(1, device.db().number("SELECT count(*) FROM environment"));
    EXPECT_EQ(1, device.db().number("SELECT count(*) FROM environment WHERE value='/mine.dict'"));
}

TEST(Journal, ForgetsWhatIsDoneAndKeepsRequests) {
    const Device device;
    device.change(insertion("a"));
    const int64_t request = askForReplay(device.db());
    device.change(insertion("b"));
    const int64_t last = lastChange(device.db());
    forgetChanges(device.db(), last);
    EXPECT_THAT(summaries(device.db()), IsEmpty());
    EXPECT_EQ(kReplayAsked, replayState(device.db(), request));
    answerReplays(device.db(), kReplayNoRelay);
    EXPECT_EQ(kReplayNoRelay, replayState(device.db(), request));
    EXPECT_FALSE(replayAsked(device.db()));
    device.change(insertion("c"));
    EXPECT_GT(lastChange(device.db()), last) << "a number was used twice";
}

TEST(OldValues, AreTextsLaidEndToEnd) {
    EXPECT_EQ(std::string("n1\0n2\0v1\0\0", 10), layOut({"n1", "n2"}, {"v1", ""}));
    EXPECT_EQ("", layOut({}, {}));
}

}  // namespace
}  // namespace lanyardctl
