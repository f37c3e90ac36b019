// Who has access to the database, which holds secrets.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/temporary_root.h"
#include "tests/unit/tools/lanyardctl/device.h"
#include "tools/lanyardctl/servers.h"

namespace lanyard::test::access_test {
namespace {

using lanyardctl::Database;

// Another user of every Linux machine.
constexpr uid_t kNobody = 65534;

class Access : public testing::Test {
  protected:
    ~Access() override { umask(before_); }

    // What was said meanwhile.
    template <typename Action>
    static std::string said(Action action) {
        testing::internal::CaptureStderr();
        action();
        return testing::internal::GetCapturedStderr();
    }

    [[nodiscard]] std::string mended() const {
        return "lanyardctl: others had access to the database " + file_ +
               ", which holds secrets; now it is its owner's alone\n";
    }

    // The database and what SQLite keeps beside it.
    void expectOwnersAlone() const {
        for (const std::string &name : root_.list("/")) {
            EXPECT_EQ(0600U, root_.mode("/" + name)) << name;
        }
    }

    const TemporaryRoot root_;
    const std::string file_ = root_.path("/config.db").string();
    const mode_t before_ = umask(022);
};

TEST_F(Access, NewDatabaseIsItsOwnersAlone) {
    for (const mode_t mask : {0U, 022U, 077U, 0777U}) {
        SCOPED_TRACE(mask);
        umask(mask);
        EXPECT_EQ("", said([this] { lanyardctl::prepareDatabase(Database::create(file_), {}); }));
        umask(022);
        expectOwnersAlone();
        root_.remove("/config.db");
    }
}

TEST_F(Access, WhatSqliteKeepsBesideItIsTheSame) {
    umask(0);
    for (const char *mode : {"wal", "persist"}) {
        SCOPED_TRACE(mode);
        const Database db = Database::create(file_);
        lanyardctl::prepareDatabase(db, {});
        db.run(std::string("PRAGMA journal_mode=") + mode);
        db.run(insertion("a"));
        EXPECT_LT(1U, root_.list("/").size());
        expectOwnersAlone();
    }
}

TEST_F(Access, IsTakenFromOthersBeforeSecretsAreStored) {
    for (const mode_t mode : {0644U, 0666U, 0640U, 0660U, 0604U}) {
        SCOPED_TRACE(mode);
        root_.write("/config.db", "", mode);
        EXPECT_EQ(mended(),
                  said([this] { lanyardctl::prepareDatabase(Database::create(file_), {}); }));
        expectOwnersAlone();
        EXPECT_EQ("", said([this] { Database::open(file_); })) << "once";
    }
}

TEST_F(Access, IsTakenFromOthersBesideTheDatabaseToo) {
    umask(0);
    const Database other = Database::create(file_);
    lanyardctl::prepareDatabase(other, {});
    other.run("PRAGMA journal_mode=WAL");
    other.run(insertion("a"));
    for (const char *suffix : {"-wal", "-shm"}) {
        ASSERT_EQ(0, chmod((file_ + suffix).c_str(), 0644));
    }
    EXPECT_EQ(mended(), said([this] { Database::open(file_); }));
    expectOwnersAlone();
    other.run(insertion("b"));
    EXPECT_EQ(2, Database::open(file_).number("SELECT count(*) FROM radiusClient"));
}

TEST_F(Access, OfWhatIsNoDatabaseStays) {
    root_.write("/config.db", std::string(4096, 'x'));
    EXPECT_THROW(Database::open(file_), lanyardctl::Failure);
    EXPECT_EQ(0644U, root_.mode("/config.db"));
}

// Opens the database as another user, and yields the exit status that tells of it.
[[noreturn]] void openAsNobody(const std::string &file) {
    if (setuid(kNobody) != 0) {
        _exit(3);
    }
    try {
        Database::open(file);
    } catch (const lanyardctl::Failure &failure) {
        const std::string text = failure.what();
        _exit(write(STDERR_FILENO, text.data(), text.size()) > 0 ? 1 : 2);
    }
    _exit(0);
}

TEST_F(Access, ThatCannotBeTakenIsAFailure) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can make a file that is another user's";
    }
    lanyardctl::prepareDatabase(Database::create(file_), {});
    ASSERT_EQ(0, chmod(root_.folder().c_str(), 0777));
    ASSERT_EQ(0, chmod(file_.c_str(), 0666));
    EXPECT_EXIT(openAsNobody(file_), testing::ExitedWithCode(1),
                "others than its owner have access to .*/config.db, which holds secrets, and that "
                "cannot be changed: Operation not permitted");
}

}  // namespace
}  // namespace lanyard::test::access_test
