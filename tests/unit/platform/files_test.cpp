#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <palcore.h>
#include <palroot.h>

#include "role.h"
#include "signals.h"

namespace {

namespace fs = std::filesystem;

std::string firstLine(const std::string &path) {
    FILE *file = palFileOpen(path.c_str(), "r");
    if (file == nullptr) {
        return "errno " + std::to_string(errno);
    }
    char line[80] = "";
    palFileGets(line, sizeof line, file);
    palFileClose(file);
    return line;
}

bool closesOnExec(int fd) {
    return (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0;
}

/** A folder of its own for each test, gone afterwards. */
class Files : public testing::Test {
  protected:
    Files() : folder_(fs::path(testing::TempDir()) / "platform-files-XXXXXX") {
        if (mkdtemp(folder_.data()) == nullptr) {
            ADD_FAILURE() << "mkdtemp";
        }
    }
    ~Files() override {
        palRootSet(nullptr);
        fs::remove_all(folder_);
    }

    [[nodiscard]] std::string at(const std::string &name) const { return folder_ + "/" + name; }

    void put(const std::string &name, const std::string &text) const {
        fs::create_directories(fs::path(at(name)).parent_path());
        std::ofstream(at(name)) << text;
    }

  private:
    std::string folder_;
};

TEST_F(Files, WritesAndReadsText) {
    FILE *file = palFileOpen(at("text").c_str(), "w");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(palFilePrintf(file, "%s %d\nsecond", "first", 1), 14);
    EXPECT_EQ(palFileClose(file), 0);

    file = palFileOpen(at("text").c_str(), "r");
    ASSERT_NE(file, nullptr);
    char line[16];
    EXPECT_EQ(palFileGets(line, sizeof line, file), line);
    EXPECT_STREQ(line, "first 1\n");
    EXPECT_EQ(palFileGets(line, 4, file), line);
    EXPECT_STREQ(line, "sec");
    EXPECT_EQ(palFileGets(line, sizeof line, file), line);
    EXPECT_STREQ(line, "ond");
    EXPECT_EQ(palFileGets(line, sizeof line, file), nullptr);
    EXPECT_EQ(palFileClose(file), 0);
}

TEST_F(Files, PrintsToStandardOutput) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(palFilePrintf(stdout, "%s\n", "Lanyard"), 8);
    (void)std::fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Lanyard\n");
}

TEST_F(Files, ReportsWhyAFileCannotBeOpened) {
    errno = 0;
    EXPECT_EQ(palFileOpen(at("missing").c_str(), "r"), nullptr);
    EXPECT_EQ(errno, ENOENT);
    errno = 0;
    EXPECT_EQ(palOpen(at("missing").c_str(), O_RDONLY, 0), -1);
    EXPECT_EQ(errno, ENOENT);
    errno = 0;
    EXPECT_EQ(palUnlink(at("missing").c_str()), -1);
    EXPECT_EQ(errno, ENOENT);
    errno = 0;
    EXPECT_EQ(palClose(-1), -1);
    EXPECT_EQ(errno, EBADF);
    char byte = 0;
    errno = 0;
    EXPECT_EQ(palRead(-1, &byte, 1), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(Files, ReportsDataThatCouldNotBeWritten) {
    FILE *file = palFileOpen("/dev/full", "w");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(palFilePrintf(file, "text"), 4);
    errno = 0;
    EXPECT_EQ(palFileClose(file), -1);
    EXPECT_EQ(errno, ENOSPC);
}

TEST_F(Files, RefusesNull) {
    char line[4];
    EXPECT_EQ(palFileOpen(nullptr, "r"), nullptr);
    EXPECT_EQ(palFileOpen(at("text").c_str(), nullptr), nullptr);
    EXPECT_EQ(palFileOpen(at("text").c_str(), "a mode that is far too long"), nullptr);
    EXPECT_EQ(palFileOpen("/dev/null", "r,ccs=UTF-8"), nullptr);
    EXPECT_EQ(palFileGets(line, sizeof line, nullptr), nullptr);
    EXPECT_EQ(palFileGets(nullptr, 4, stdin), nullptr);
    EXPECT_EQ(palFileGets(line, 0, stdin), nullptr);
    EXPECT_EQ(palFilePrintf(nullptr, "text"), -1);
    EXPECT_EQ(palFileClose(nullptr), -1);
    EXPECT_EQ(palUnlink(nullptr), -1);
    EXPECT_EQ(palOpen(nullptr, O_RDONLY, 0), -1);
}

TEST_F(Files, OpensCreatesReadsAndRemoves) {
    const mode_t mask = umask(0);
    const int created = palOpen(at("raw").c_str(), O_WRONLY | O_CREAT | O_EXCL, 0640);
    umask(mask);
    ASSERT_NE(created, -1);
    ASSERT_EQ(write(created, "abcdef", 6), 6);
    struct stat status {};
    ASSERT_EQ(fstat(created, &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0640U);
    EXPECT_EQ(palClose(created), 0);

    const int fd = palOpen(at("raw").c_str(), O_RDONLY, 0);
    ASSERT_NE(fd, -1);
    char bytes[8] = "";
    EXPECT_EQ(palRead(fd, bytes, 4), 4);
    EXPECT_STREQ(bytes, "abcd");
    EXPECT_EQ(palRead(fd, bytes, 8), 2);
    EXPECT_EQ(palRead(fd, bytes, 8), 0);
    EXPECT_EQ(palClose(fd), 0);

    EXPECT_EQ(palUnlink(at("raw").c_str()), 0);
    EXPECT_FALSE(fs::exists(at("raw")));
}

TEST_F(Files, ReplacesAFileWhole) {
    put("old", "old\n");
    put("new", "new\n");
    FILE *reader = palFileOpen(at("old").c_str(), "r");
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(palFileRename(at("new").c_str(), at("old").c_str()), 0);
    EXPECT_EQ(firstLine(at("old")), "new\n");
    EXPECT_FALSE(fs::exists(at("new")));
    char line[8] = "";
    EXPECT_STREQ(palFileGets(line, sizeof line, reader), "old\n");
    EXPECT_EQ(palFileClose(reader), 0);

    errno = 0;
    EXPECT_EQ(palFileRename(at("new").c_str(), at("old").c_str()), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(firstLine(at("old")), "new\n");
    EXPECT_EQ(palFileRename(nullptr, at("old").c_str()), -1);
    EXPECT_EQ(palFileRename(at("old").c_str(), nullptr), -1);
}

TEST_F(Files, ARootTakesBothPathsOfAReplacement) {
    put("var/new", "new\n");
    palRootSet(at("").c_str());
    EXPECT_EQ(palFileRename("/var/new", "/var/../var/old"), 0);
    palRootSet(nullptr);
    EXPECT_EQ(firstLine(at("var/old")), "new\n");
}

TEST_F(Files, DescriptorsCloseOnExec) {
    put("text", "a\n");
    const int fd = palOpen(at("text").c_str(), O_RDONLY, 0);
    EXPECT_TRUE(closesOnExec(fd));
    EXPECT_EQ(palClose(fd), 0);
    for (const char *mode : {"r", "r+", "a", "w", "rb"}) {
        FILE *file = palFileOpen(at("text").c_str(), mode);
        ASSERT_NE(file, nullptr) << mode;
        EXPECT_TRUE(closesOnExec(fileno(file))) << mode;
        EXPECT_EQ(palFileClose(file), 0);
    }
}

TEST_F(Files, SignalsDoNotInterruptReading) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    char byte = 0;
    {
        const test::Interruptions interruptions(
            50, [writer = ends[1]] { EXPECT_EQ(write(writer, "x", 1), 1); });
        EXPECT_EQ(palRead(ends[0], &byte, 1), 1);
    }
    EXPECT_EQ(byte, 'x');
    palClose(ends[0]);
    palClose(ends[1]);
}

TEST_F(Files, SignalsDoNotInterruptOpening) {
    // Opening a FIFO for reading waits for a writer.
    ASSERT_EQ(mkfifo(at("fifo").c_str(), 0600), 0);
    int writer = -1;
    {
        const test::Interruptions interruptions(50, [&writer, path = at("fifo")] {
            writer = open(path.c_str(), O_WRONLY | O_CLOEXEC);
        });
        const int reader = palOpen(at("fifo").c_str(), O_RDONLY, 0);
        EXPECT_NE(reader, -1);
        if (reader == -1) {  // Or the other thread would wait for ever.
            EXPECT_NE(open(at("fifo").c_str(), O_RDWR | O_CLOEXEC), -1);
        }
        palClose(reader);
    }
    palClose(writer);
}

TEST_F(Files, ARootTakesAbsolutePathsUnderItsFolder) {
    put("root/var/radius.conf", "inside\n");
    palRootSet(at("root").c_str());
    EXPECT_EQ(firstLine("/var/radius.conf"), "inside\n");

    const int fd = palOpen("/var/created", O_WRONLY | O_CREAT, 0600);
    EXPECT_NE(fd, -1);
    palClose(fd);
    EXPECT_TRUE(fs::exists(at("root/var/created")));

    EXPECT_EQ(palUnlink("/var/created"), 0);
    EXPECT_FALSE(fs::exists(at("root/var/created")));
}

TEST_F(Files, ARootMayEndInASlash) {
    put("root/var/radius.conf", "inside\n");
    palRootSet((at("root") + "/").c_str());
    EXPECT_EQ(firstLine("/var/radius.conf"), "inside\n");
    palRootSet("/");
    EXPECT_EQ(firstLine(at("root/var/radius.conf")), "inside\n");
}

TEST_F(Files, ARootIsSwitchedOffWithNullOrNothing) {
    put("text", "outside\n");
    for (const char *off : {static_cast<const char *>(nullptr), ""}) {
        palRootSet(at("root").c_str());
        EXPECT_EQ(firstLine(at("text")), "errno " + std::to_string(ENOENT));
        palRootSet(off);
        EXPECT_EQ(firstLine(at("text")), "outside\n");
    }
}

TEST_F(Files, ARootLeavesDevicesAndRelativePathsAlone) {
    put("root/radius.conf", "inside\n");
    palRootSet(at("root").c_str());
    for (const char *path : {"/dev/urandom", "//dev/./urandom", "/var/../dev/urandom"}) {
        const int fd = palOpen(path, O_RDONLY, 0);
        char bytes[16];
        EXPECT_EQ(palRead(fd, bytes, sizeof bytes), 16) << path;
        palClose(fd);
    }
    const fs::path before = fs::current_path();
    fs::current_path(at("root"));
    EXPECT_EQ(firstLine("radius.conf"), "inside\n");
    fs::current_path(before);
}

TEST_F(Files, ARelativeRootIsTakenFromTheWorkingFolder) {
    put("root/var/radius.conf", "inside\n");
    const fs::path before = fs::current_path();
    fs::current_path(at("."));
    palRootSet("root");
    fs::current_path(before);
    EXPECT_EQ(firstLine("/var/radius.conf"), "inside\n");
}

TEST_F(Files, NoPathLeadsOutOfARoot) {
    put("secret", "outside\n");
    put("root/secret", "inside\n");
    put("root/dev", "inside\n");
    palRootSet(at("root").c_str());
    for (const char *path :
         {"/../secret", "/../../../secret", "/var/../../secret", "//..//secret", "/./../secret",
          "/dev/../secret", "/dev/shm/../../../secret", "/a/b/../../../secret", "/secret/."}) {
        EXPECT_EQ(firstLine(path), "inside\n") << path;
    }
    // "/dev" itself is no device, and a name that only begins like it is none either.
    EXPECT_EQ(firstLine("/dev"), "inside\n");
    put("root/device", "inside\n");
    EXPECT_EQ(firstLine("/device"), "inside\n");
    // Two dots are only special when they stand alone.
    put("root/..secret", "dots\n");
    EXPECT_EQ(firstLine("/..secret"), "dots\n");
}

TEST_F(Files, APathThatIsTooLongUnderARootIsRefused) {
    palRootSet(at("root").c_str());
    const std::string longPath = "/" + std::string(PATH_MAX, 'x');
    EXPECT_EQ(firstLine(longPath), "errno " + std::to_string(ENAMETOOLONG));
    EXPECT_EQ(palOpen(("/" + std::string(PATH_MAX - 10, 'x')).c_str(), O_RDONLY, 0), -1);
    EXPECT_EQ(errno, ENAMETOOLONG);
}

TEST_F(Files, ARootThatCannotBeUsedDoesNotExposeTheMachine) {
    put("text", "outside\n");
    palRootSet(("/" + std::string(PATH_MAX, 'x')).c_str());
    EXPECT_EQ(firstLine(at("text")), "errno " + std::to_string(ENOENT));
    EXPECT_NE(firstLine("/dev/zero"), "errno " + std::to_string(ENOENT));
}

int catRadiusConf(const std::vector<std::string> & /*arguments*/) {
    (void)std::fputs(firstLine("/var/radius.conf").c_str(), stdout);
    return 0;
}
const test::Role catRole("cat-radius-conf", catRadiusConf);

TEST_F(Files, TheRootComesFromTheEnvironment) {
    put("root/var/radius.conf", "inside\n");
    const test::RoleResult result = test::runRole("cat-radius-conf", {"PAL_ROOT=" + at("root")});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "inside\n");
}

}  // namespace
