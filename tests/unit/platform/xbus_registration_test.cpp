// The bus's folder, and modules that register and leave.
#include <cerrno>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>

#include <palroot.h>
#include <xbus.h>

#include "tests/unit/platform/xbus_fixture.h"

namespace lanyard::test::xbus_registration_test {
namespace {

using testing::ElementsAre;

using Xbus = XbusTest;

TEST_F(Xbus, FolderAndFiles_AreTheirOwnersAlone) {
    const Module module(kRelay);
    EXPECT_EQ(0700U, root_.mode("/run/xbus"));
    struct stat status {};
    ASSERT_EQ(0, lstat(socketPath(kRelay).c_str(), &status));
    EXPECT_TRUE(S_ISSOCK(status.st_mode));
    EXPECT_EQ(0600U, status.st_mode & 07777U);
    EXPECT_EQ(0600U, root_.mode("/run/xbus/8.lock"));
}

TEST_F(Xbus, InitWithAFolderThatIsOpenToOthers_ClosesIt) {
    ASSERT_EQ(0, chmod(root_.path("/run/xbus").c_str(), 0777));
    EXPECT_EQ(0, xbusInit());
    EXPECT_EQ(0700U, root_.mode("/run/xbus"));
}

TEST_F(Xbus, InitWithoutAPlaceForTheFolder_Fails) {
    root_.remove("/run");
    root_.write("/run", "a file");
    EXPECT_NE(0, xbusInit());
    root_.remove("/run");
    root_.write("/run/xbus", "a file");
    EXPECT_NE(0, xbusInit());
    palRootSet("/nonexistent/root");
    EXPECT_NE(0, xbusInit());
    palRootSet(root_.folder().c_str());
}

TEST_F(Xbus, RegisterWithoutFolderOrHandler_Refused) {
    errno = 0;
    EXPECT_EQ(nullptr, xbusRegister(kRelay, XBUS_MODE_HANDLER, nullptr, nullptr));
    EXPECT_EQ(EINVAL, errno);
    root_.remove("/run/xbus");
    errno = 0;
    EXPECT_EQ(nullptr, xbusRegister(kRelay, XBUS_MODE_HANDLER, ignore, nullptr));
    EXPECT_EQ(ENOENT, errno);
}

TEST_F(Xbus, RegisterTwice_SecondRefused) {
    {
        Module first(kRelay);
        errno = 0;
        EXPECT_EQ(nullptr, xbusRegister(kRelay, XBUS_MODE_HANDLER, ignore, nullptr));
        EXPECT_EQ(EADDRINUSE, errno);
        Child other([] {
            return xbusRegister(kRelay, XBUS_MODE_HANDLER, ignore, nullptr) == nullptr &&
                           errno == EADDRINUSE
                       ? 0
                       : 1;
        });
        EXPECT_EQ(0, other.wait());

        const Module sender(kPnac);
        EXPECT_EQ(0, sender.notify(kRelay, 1)) << "the refused ones took nothing away";
        EXPECT_EQ(1, first.listen());
    }
    const Module again(kRelay);
}

TEST_F(Xbus, Unregister_LeavesNoSocket) {
    { const Module module(kRelay); }
    EXPECT_THAT(root_.list("/run/xbus"), ElementsAre("8.lock"));
    EXPECT_EQ(-1, xbusUnRegister(nullptr));
}

TEST_F(Xbus, LongRoot_Works) {
    const std::string folder = root_.folder().string() + "/" + std::string(200, 'x');
    ASSERT_EQ(0, mkdir(folder.c_str(), 0700));
    palRootSet(folder.c_str());
    ASSERT_EQ(0, xbusInit());
    Module receiver(kRelay);
    const Module sender(kPnac);
    EXPECT_TRUE(std::filesystem::exists(folder + "/run/xbus/8"));
    EXPECT_EQ(0, sender.notify(kRelay, 1));
    EXPECT_EQ(1, receiver.listen());
    palRootSet(root_.folder().c_str());
    EXPECT_EQ(0, sender.notify(kRelay, 2)) << "modules stay where they registered";
    EXPECT_EQ(1, receiver.listen());
}

}  // namespace
}  // namespace lanyard::test::xbus_registration_test
