// The database may be opened before the library is started or after, with the OS layer's own memory
// under both: what was configured before lies on the heap, and is released under the library's
// partition.
#include <functional>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/dict.h>
#include <lanyard/radius/mgmt.h>

#include "tests/support/test.h"
#include "tests/unit/device/database_file.h"

namespace lanyard::test::order_test {
namespace {

constexpr const char *kDictionary = "/nexa2.0/etc/radius.dict";

class StartOrder : public testing::Test {
  protected:
    void SetUp() override {
        EXPECT_EQ(0U, radMemPartId);
        root_.write(kDictionary, "ATTRIBUTE Test-Text 250 string\n");
        database_.nameDictionary(kDictionary);
        firstRow_ = database_.addServer("'first', '1', 's1', '5', '2'");
        secondRow_ = database_.addServer("'second', '2', 's2', '5', '2'");
    }

    void TearDown() override {
        EXPECT_EQ(0, radiusMgmtDeInit());
        EXPECT_EQ(0, radLibExit());
        EXPECT_EQ(0U, radMemPartId);
        EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_AUTH));
        EXPECT_EQ(nullptr, radDictGetAttr(1));
        EXPECT_EQ(nullptr, radConfGet(RAD_CONF_TIMEOUT));
    }

    void openDatabase() { EXPECT_EQ(0, radiusMgmtInit(database_.path(), "test")); }

    static void startLibrary() {
        EXPECT_EQ(0, radLibInit(nullptr));
        EXPECT_NE(0U, radMemPartId);
    }

    static int notify(int opCode, int rowId) {
        RadDbUpdateInfo info{.tableName = "radiusClient",
                             .rowKey = 0,
                             .rowId = rowId,
                             .opCode = opCode,
                             .reserved = 0};
        std::string old = std::string("authserver") + '\0' + "p" + '\0' + "s" + '\0' + "t" + '\0' +
                          "r" + '\0' + "first" + '\0';
        return radiusMgmtDBUpdateHandler(
            &info, sizeof(info), opCode == RAD_DB_UPDATE ? old.data() : nullptr,
            opCode == RAD_DB_UPDATE ? static_cast<uint32_t>(old.size()) : 0);
    }

    // Servers come, change and go; one of each stays for the end.
    void useAll() const {
        EXPECT_NE(nullptr, radDictGetAttr(250));
        EXPECT_EQ(0, notify(RAD_DB_INSERT, secondRow_));
        EXPECT_EQ(0, notify(RAD_DB_UPDATE, firstRow_));
        EXPECT_EQ(0, radConfSetTimeout("7"));
        EXPECT_EQ(2, radConfGetNumServers(RAD_SERVER_AUTH));
        EXPECT_EQ(0, notify(RAD_DB_DELETE, secondRow_));
        EXPECT_EQ(1, radConfGetNumServers(RAD_SERVER_AUTH));
    }

    TemporaryRoot root_;
    const DatabaseFile database_{root_.path("/device.db")};
    int firstRow_ = 0;
    int secondRow_ = 0;
};

TEST_F(StartOrder, TheLibraryFirst) {
    startLibrary();
    openDatabase();
    EXPECT_EQ(0, notify(RAD_DB_INSERT, firstRow_));
    useAll();
}

TEST_F(StartOrder, TheDatabaseFirst) {
    openDatabase();
    EXPECT_EQ(0U, radMemPartId);
    EXPECT_EQ(0, notify(RAD_DB_INSERT, firstRow_));
    startLibrary();
    useAll();
}

TEST_F(StartOrder, TheDatabaseFirstAndThenAgain) {
    openDatabase();
    EXPECT_EQ(0, notify(RAD_DB_INSERT, firstRow_));
    startLibrary();
    EXPECT_EQ(0, notify(RAD_DB_INSERT, secondRow_));
    openDatabase();
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_AUTH));
    EXPECT_EQ(0, notify(RAD_DB_INSERT, firstRow_));
    useAll();
}

TEST_F(StartOrder, TheDatabaseBetweenTwoLibraries) {
    startLibrary();
    openDatabase();
    EXPECT_EQ(0, notify(RAD_DB_INSERT, firstRow_));
    EXPECT_EQ(0, radLibExit());
    openDatabase();
    EXPECT_EQ(0, notify(RAD_DB_INSERT, firstRow_));
    startLibrary();
    useAll();
}

TEST_F(StartOrder, TheDatabaseAlone) {
    openDatabase();
    EXPECT_EQ(0, notify(RAD_DB_INSERT, firstRow_));
    useAll();
    EXPECT_EQ(0, radDeconfigure());
}

}  // namespace
}  // namespace lanyard::test::order_test
