// Files, by the paths of the device, and the root folder that these are taken under.
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <palcore.h>
#include <palroot.h>

#include "tests/support/temporary_folder.h"
#include "tests/unit/platform/role.h"
#include "tests/unit/platform/signals.h"

namespace lanyard::test::files_test {
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

// A folder of its own for each test, gone afterwards.
class Files : public testing::Test {
  protected:
    ~Files() override { palRootSet(nullptr); }

    std::string at(const std::string &name) const { return folder_.path().string() + "/" + name; }

    void put(const std::string &name, const std::string &text) const { folder_.write(name, text); }

  private:
    TemporaryFolder folder_;
};

TEST_F(Files, Text_WrittenAndReadBack) {
    FILE *file = palFileOpen(at("text").c_str(), "w");
    ASSERT_NE(nullptr, file);
    EXPECT_EQ(14, palFilePrintf(file, "%s %d\nsecond", "first", 1));
    EXPECT_EQ(0, palFileClose(file));

    file = palFileOpen(at("text").c_str(), "r");
    ASSERT_NE(nullptr, file);
    char line[16];
    EXPECT_EQ(line, palFileGets(line, sizeof line, file));
    EXPECT_STREQ("first 1\n", line);
    EXPECT_EQ(line, palFileGets(line, 4, file));
    EXPECT_STREQ("sec", line);
    EXPECT_EQ(line, palFileGets(line, sizeof line, file));
    EXPECT_STREQ("ond", line);
    EXPECT_EQ(nullptr, palFileGets(line, sizeof line, file));
    EXPECT_EQ(0, palFileClose(file));
}

TEST_F(Files, StandardOutput_Printed) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(8, palFilePrintf(stdout, "%s\n", "Lanyard"));
    (void)std::fflush(stdout);
    EXPECT_EQ("Lanyard\n", testing::internal::GetCapturedStdout());
}

TEST_F(Files, FileThatCannotBeOpened_SetsErrno) {
    errno = 0;
    EXPECT_EQ(nullptr, palFileOpen(at("missing").c_str(), "r"));
    EXPECT_EQ(ENOENT, errno);
    errno = 0;
    EXPECT_EQ(-1, palOpen(at("missing").c_str(), O_RDONLY, 0));
    EXPECT_EQ(ENOENT, errno);
    errno = 0;
    EXPECT_EQ(-1, palUnlink(at("missing").c_str()));
    EXPECT_EQ(ENOENT, errno);
    errno = 0;
    EXPECT_EQ(-1, palClose(-1));
    EXPECT_EQ(EBADF, errno);
    char byte = 0;
    errno = 0;
    EXPECT_EQ(-1, palRead(-1, &byte, 1));
    EXPECT_EQ(EBADF, errno);
}

TEST_F(Files, DataThatCannotBeWritten_CloseFails) {
    FILE *file = palFileOpen("/dev/full", "w");
    ASSERT_NE(nullptr, file);
    EXPECT_EQ(4, palFilePrintf(file, "text"));
    errno = 0;
    EXPECT_EQ(-1, palFileClose(file));
    EXPECT_EQ(ENOSPC, errno);
}

TEST_F(Files, Null_Refused) {
    char line[4];
    EXPECT_EQ(nullptr, palFileOpen(nullptr, "r"));
    EXPECT_EQ(nullptr, palFileOpen(at("text").c_str(), nullptr));
    EXPECT_EQ(nullptr, palFileOpen(at("text").c_str(), "a mode that is far too long"));
    EXPECT_EQ(nullptr, palFileOpen("/dev/null", "r,ccs=UTF-8"));
    EXPECT_EQ(nullptr, palFileGets(line, sizeof line, nullptr));
    EXPECT_EQ(nullptr, palFileGets(nullptr, 4, stdin));
    EXPECT_EQ(nullptr, palFileGets(line, 0, stdin));
    EXPECT_EQ(-1, palFilePrintf(nullptr, "text"));
    EXPECT_EQ(-1, palFileClose(nullptr));
    EXPECT_EQ(-1, palUnlink(nullptr));
    EXPECT_EQ(-1, palOpen(nullptr, O_RDONLY, 0));
}

TEST_F(Files, Descriptor_OpensCreatesReadsAndRemoves) {
    const mode_t mask = umask(0);
    const int created = palOpen(at("raw").c_str(), O_WRONLY | O_CREAT | O_EXCL, 0640);
    umask(mask);
    ASSERT_NE(-1, created);
    ASSERT_EQ(6, write(created, "abcdef", 6));
    struct stat status {};
    ASSERT_EQ(0, fstat(created, &status));
    EXPECT_EQ(0640U, status.st_mode & 07777U);
    EXPECT_EQ(0, palClose(created));

    const int fd = palOpen(at("raw").c_str(), O_RDONLY, 0);
    ASSERT_NE(-1, fd);
    char bytes[8] = "";
    EXPECT_EQ(4, palRead(fd, bytes, 4));
    EXPECT_STREQ("abcd", bytes);
    EXPECT_EQ(2, palRead(fd, bytes, 8));
    EXPECT_EQ(0, palRead(fd, bytes, 8));
    EXPECT_EQ(0, palClose(fd));

    EXPECT_EQ(0, palUnlink(at("raw").c_str()));
    EXPECT_FALSE(fs::exists(at("raw")));
}

TEST_F(Files, Rename_ReplacesAFileWhole) {
    put("old", "old\n");
    put("new", "new\n");
    FILE *reader = palFileOpen(at("old").c_str(), "r");
    ASSERT_NE(nullptr, reader);
    EXPECT_EQ(0, palFileRename(at("new").c_str(), at("old").c_str()));
    EXPECT_EQ("new\n", firstLine(at("old")));
    EXPECT_FALSE(fs::exists(at("new")));
    char line[8] = "";
    EXPECT_STREQ("old\n", palFileGets(line, sizeof line, reader));
    EXPECT_EQ(0, palFileClose(reader));

    errno = 0;
    EXPECT_EQ(-1, palFileRename(at("new").c_str(), at("old").c_str()));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ("new\n", firstLine(at("old")));
    EXPECT_EQ(-1, palFileRename(nullptr, at("old").c_str()));
    EXPECT_EQ(-1, palFileRename(at("old").c_str(), nullptr));
}

TEST_F(Files, Rename_UnderARoot_TakesBothPathsThere) {
    put("var/new", "new\n");
    palRootSet(at("").c_str());
    EXPECT_EQ(0, palFileRename("/var/new", "/var/../var/old"));
    palRootSet(nullptr);
    EXPECT_EQ("new\n", firstLine(at("var/old")));
}

TEST_F(Files, OpenedFiles_CloseOnExec) {
    put("text", "a\n");
    const int fd = palOpen(at("text").c_str(), O_RDONLY, 0);
    EXPECT_TRUE(closesOnExec(fd));
    EXPECT_EQ(0, palClose(fd));
    for (const char *mode : {"r", "r+", "a", "w", "rb"}) {
        FILE *file = palFileOpen(at("text").c_str(), mode);
        ASSERT_NE(nullptr, file) << mode;
        EXPECT_TRUE(closesOnExec(fileno(file))) << mode;
        EXPECT_EQ(0, palFileClose(file));
    }
}

TEST_F(Files, SignalsWhileReading_NotSeen) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
    char byte = 0;
    {
        const Interruptions interruptions(
            50, [writer = ends[1]] { EXPECT_EQ(1, write(writer, "x", 1)); });
        EXPECT_EQ(1, palRead(ends[0], &byte, 1));
    }
    EXPECT_EQ('x', byte);
    palClose(ends[0]);
    palClose(ends[1]);
}

TEST_F(Files, SignalsWhileOpening_NotSeen) {
    // Opening a FIFO for reading waits for a writer.
    ASSERT_EQ(0, mkfifo(at("fifo").c_str(), 0600));
    int writer = -1;
    {
        const Interruptions interruptions(50, [&writer, path = at("fifo")] {
            writer = open(path.c_str(), O_WRONLY | O_CLOEXEC);
        });
        const int reader = palOpen(at("fifo").c_str(), O_RDONLY, 0);
        EXPECT_NE(-1, reader);
        if (reader == -1) {  // Or the other thread would wait for ever.
            EXPECT_NE(-1, open(at("fifo").c_str(), O_RDWR | O_CLOEXEC));
        }
        palClose(reader);
    }
    palClose(writer);
}

TEST_F(Files, AbsolutePath_TakenUnderTheRoot) {
    put("root/var/radius.conf", "inside\n");
    palRootSet(at("root").c_str());
    EXPECT_EQ("inside\n", firstLine("/var/radius.conf"));

    const int fd = palOpen("/var/created", O_WRONLY | O_CREAT, 0600);
    EXPECT_NE(-1, fd);
    palClose(fd);
    EXPECT_TRUE(fs::exists(at("root/var/created")));

    EXPECT_EQ(0, palUnlink("/var/created"));
    EXPECT_FALSE(fs::exists(at("root/var/created")));
}

TEST_F(Files, RootThatEndsInASlash_Taken) {
    put("root/var/radius.conf", "inside\n");
    palRootSet((at("root") + "/").c_str());
    EXPECT_EQ("inside\n", firstLine("/var/radius.conf"));
    palRootSet("/");
    EXPECT_EQ("inside\n", firstLine(at("root/var/radius.conf")));
}

TEST_F(Files, NullOrEmptyRoot_SwitchesItOff) {
    put("text", "outside\n");
    for (const char *off : {static_cast<const char *>(nullptr), ""}) {
        palRootSet(at("root").c_str());
        EXPECT_EQ("errno " + std::to_string(ENOENT), firstLine(at("text")));
        palRootSet(off);
        EXPECT_EQ("outside\n", firstLine(at("text")));
    }
}

TEST_F(Files, DevicesAndRelativePaths_NotTakenUnderTheRoot) {
    put("root/radius.conf", "inside\n");
    palRootSet(at("root").c_str());
    for (const char *path : {"/dev/urandom", "//dev/./urandom", "/var/../dev/urandom"}) {
        const int fd = palOpen(path, O_RDONLY, 0);
        char bytes[16];
        EXPECT_EQ(16, palRead(fd, bytes, sizeof bytes)) << path;
        palClose(fd);
    }
    const fs::path before = fs::current_path();
    fs::current_path(at("root"));
    EXPECT_EQ("inside\n", firstLine("radius.conf"));
    fs::current_path(before);
}

TEST_F(Files, RelativeRoot_TakenFromTheWorkingFolder) {
    put("root/var/radius.conf", "inside\n");
    const fs::path before = fs::current_path();
    fs::current_path(at("."));
    palRootSet("root");
    fs::current_path(before);
    EXPECT_EQ("inside\n", firstLine("/var/radius.conf"));
}

TEST_F(Files, PathWithDots_StaysInTheRoot) {
    put("secret", "outside\n");
    put("root/secret", "inside\n");
    put("root/dev", "inside\n");
    palRootSet(at("root").c_str());
    for (const char *path :
         {"/../secret", "/../../../secret", "/var/../../secret", "//..//secret", "/./../secret",
          "/dev/../secret", "/dev/shm/../../../secret", "/a/b/../../../secret", "/secret/."}) {
        EXPECT_EQ("inside\n", firstLine(path)) << path;
    }
    // "/dev" itself is no device, and a name that only begins like it is none either.
    EXPECT_EQ("inside\n", firstLine("/dev"));
    put("root/device", "inside\n");
    EXPECT_EQ("inside\n", firstLine("/device"));
    // Two dots are only special when they stand alone.
    put("root/..secret", "dots\n");
    EXPECT_EQ("dots\n", firstLine("/..secret"));
}

TEST_F(Files, PathThatIsTooLongUnderTheRoot_Refused) {
    palRootSet(at("root").c_str());
    const std::string longPath = "/" + std::string(PATH_MAX, 'x');
    EXPECT_EQ("errno " + std::to_string(ENAMETOOLONG), firstLine(longPath));
    EXPECT_EQ(-1, palOpen(("/" + std::string(PATH_MAX - 10, 'x')).c_str(), O_RDONLY, 0));
    EXPECT_EQ(ENAMETOOLONG, errno);
}

TEST_F(Files, RootThatCannotBeUsed_DoesNotExposeTheMachine) {
    put("text", "outside\n");
    palRootSet(("/" + std::string(PATH_MAX, 'x')).c_str());
    EXPECT_EQ("errno " + std::to_string(ENOENT), firstLine(at("text")));
    EXPECT_NE("errno " + std::to_string(ENOENT), firstLine("/dev/zero"));
}

int catRadiusConf(const std::vector<std::string> & /*arguments*/) {
    (void)std::fputs(firstLine("/var/radius.conf").c_str(), stdout);
    return 0;
}
const Role catRole("cat-radius-conf", catRadiusConf);

TEST_F(Files, RootInTheEnvironment_Taken) {
    put("root/var/radius.conf", "inside\n");
    const RoleResult result = runRole("cat-radius-conf", {"PAL_ROOT=" + at("root")});
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("inside\n", result.out);
}

}  // namespace
}  // namespace lanyard::test::files_test
