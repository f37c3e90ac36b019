// The device's own address, from its database.
#include <arpa/inet.h>
#include <filesystem>

#include "tests/support/test.h"
#include "tests/unit/device/fixture.h"

namespace lanyard::test::host_address_test {
namespace {

class DeviceAddress : public MgmtTest {
  protected:
    void SetUp() override {
        MgmtTest::SetUp();
        open();
    }
};

TEST_F(DeviceAddress, IsThatOfTheBridge) {
    database.run(
        "INSERT INTO networkInterface VALUES ('eth0', '10.0.0.1'), ('bdg', '192.168.2.30'),"
        " ('bdg', '10.0.0.2')");
    EXPECT_EQ(htonl(0xc0a8021e), radGetHostIPFromDB());
    EXPECT_LOG(log, "device trace radGetHostIPFromDB> Host IP address: 192.168.2.30");
}

TEST_F(DeviceAddress, IsReadAnewEachTime) {
    database.run("INSERT INTO networkInterface VALUES ('bdg', '192.168.2.30')");
    EXPECT_EQ(htonl(0xc0a8021e), radGetHostIPFromDB());
    database.run("UPDATE networkInterface SET ipaddr='10.0.0.2'");
    EXPECT_EQ(htonl(0x0a000002), radGetHostIPFromDB());
}

TEST_F(DeviceAddress, IsWhatInetAddrMakesOfTheText) {
    database.run("INSERT INTO networkInterface VALUES ('bdg', 'nowhere')");
    EXPECT_EQ(INADDR_NONE, radGetHostIPFromDB());
    EXPECT_LOG(log, "device trace radGetHostIPFromDB> Host IP address: nowhere");
}

TEST_F(DeviceAddress, IsNoneWithoutABridge) {
    database.run("INSERT INTO networkInterface VALUES ('eth0', '10.0.0.1')");
    EXPECT_EQ(0U, radGetHostIPFromDB());
    EXPECT_LOG(log, "device error radGetHostIPFromDB> empty result. nRows=0 nCols=0");
}

TEST_F(DeviceAddress, IsNoneWhereItIsNull) {
    database.run("INSERT INTO networkInterface VALUES ('bdg', NULL)");
    EXPECT_EQ(0U, radGetHostIPFromDB());
    EXPECT_LOG(log);
}

// The result has the column's name as the table was made with it.
TEST_F(DeviceAddress, IsNoneWhereItsColumnIsMissing) {
    database.run(
        "DROP TABLE networkInterface; CREATE TABLE networkInterface (interfaceName TEXT, IPADDR "
        "TEXT); INSERT INTO networkInterface VALUES ('bdg', '10.0.0.1')");
    EXPECT_EQ(0U, radGetHostIPFromDB());
    EXPECT_LOG(log);
}

TEST_F(DeviceAddress, IsNoneWhereTheQueryFails) {
    database.run("DROP TABLE networkInterface");
    EXPECT_EQ(0U, radGetHostIPFromDB());
    EXPECT_LOG(log, "device error radGetHostIPFromDB> sqlite3QueryResGet failed");
}

TEST_F(DeviceAddress, IsNoneWhereTheDatabaseIsGone) {
    root.remove("/device.db");
    EXPECT_EQ(0U, radGetHostIPFromDB());
    EXPECT_LOG(log,
               "device error radGetHostIPFromDB> unable to open the DB file " +
                   std::string(database.path()),
               "device error radGetHostIPFromDB> sqlite3QueryResGet failed");
}

// A daemon leaves the folder in which it was started.
TEST_F(DeviceAddress, IsReadFromTheSameFileInAnotherFolder) {
    database.run("INSERT INTO networkInterface VALUES ('bdg', '192.168.2.30')");
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(root.folder());
    EXPECT_EQ(0, radiusMgmtInit("device.db", "test"));
    std::filesystem::current_path(before);
    EXPECT_EQ(htonl(0xc0a8021e), radGetHostIPFromDB());
}

TEST_F(DeviceAddress, IsNoneWithoutAConnection) {
    database.run("INSERT INTO networkInterface VALUES ('bdg', '10.0.0.1')");
    EXPECT_EQ(0, radiusMgmtDeInit());
    EXPECT_EQ(0U, radGetHostIPFromDB());
    EXPECT_LOG(log, "device error radGetHostIPFromDB> sqlite3QueryResGet failed");
}

}  // namespace
}  // namespace lanyard::test::host_address_test
