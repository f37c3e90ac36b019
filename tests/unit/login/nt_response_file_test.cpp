// The file of the NT-Response program as others may leave it: an earlier run, or another user.
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/unit/login/nt_response_program.h"

namespace lanyard::test::nt_response_file_test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr uid_t kNobody = 65534;
constexpr const char *kFile = "/tmp/mschap_nemo";

// Something at the path of the file from which a right response could be read.
struct Plant {
    const char *name;
    void (*plant)(const TemporaryRoot &root);
    bool needsRoot = false;
};

void plantFile(const TemporaryRoot &root) {
    root.write(kFile, toText(ntResponse()));
}

void plantLink(const TemporaryRoot &root) {
    root.write("/precious", toText(ntResponse()));
    std::filesystem::create_symlink(root.path("/precious"), root.path(kFile));
}

void plantSecondName(const TemporaryRoot &root) {
    root.write("/precious", toText(ntResponse()));
    std::filesystem::create_hard_link(root.path("/precious"), root.path(kFile));
}

// Nobody writes to it, so that whoever opens it blocking waits for ever.
void plantFifo(const TemporaryRoot &root) {
    ASSERT_EQ(0, mkfifo(root.path(kFile).c_str(), 0666));
}

void plantFileOfAnotherUser(const TemporaryRoot &root) {
    plantFile(root);
    ASSERT_EQ(0, chown(root.path(kFile).c_str(), kNobody, kNobody));
}

class PlantedFile : public testing::TestWithParam<Plant> {
  protected:
    void SetUp() override {
        if (GetParam().needsRoot && geteuid() != 0) {
            GTEST_SKIP() << "only root can give a file away";
        }
        root_.makeFolder("/tmp");
    }

    TemporaryRoot root_;
    LogRecorder log_;
};

std::string nameOf(const testing::TestParamInfo<Plant> &info) {
    return info.param.name;
}

using PlantedBefore = PlantedFile;

INSTANTIATE_TEST_SUITE_P(Everything, PlantedBefore,
                         testing::Values(Plant{"File", plantFile}, Plant{"Link", plantLink},
                                         Plant{"SecondName", plantSecondName},
                                         Plant{"Fifo", plantFifo},
                                         Plant{"FileOfAnotherUser", plantFileOfAnotherUser, true}),
                         nameOf);

TEST_P(PlantedBefore, IsRemovedAndNeverTheResponse) {
    GetParam().plant(root_);
    const StandInProgram program(root_, [](const TemporaryRoot &root, const auto &) {
        EXPECT_THAT(root.list("/tmp"), IsEmpty());
        return 1;
    });
    EXPECT_EQ((Answer{0, kNoResponse}), ask());
    EXPECT_EQ(1U, program.callCount());
    EXPECT_THAT(root_.list("/tmp"), IsEmpty());
    EXPECT_LOG(log_);
}

using PlantedMeanwhile = PlantedFile;

INSTANTIATE_TEST_SUITE_P(
    Everything, PlantedMeanwhile,
    testing::Values(Plant{"Link", plantLink}, Plant{"SecondName", plantSecondName},
                    Plant{"Fifo", plantFifo},
                    Plant{"Folder", [](const TemporaryRoot &root) { root.makeFolder(kFile); }},
                    Plant{"FileOfAnotherUser", plantFileOfAnotherUser, true}),
    nameOf);

TEST_P(PlantedMeanwhile, IsNotRead) {
    const StandInProgram program(root_, [](const TemporaryRoot &root, const auto &) {
        GetParam().plant(root);
        return 0;
    });
    EXPECT_EQ((Answer{0, kNoResponse}), ask());
    EXPECT_PROBLEMS(log_,
                    "error radMschapNtResponse> /tmp/mschap_nemo is not read: it is no file of "
                    "this user or root alone");
}

// --- As another user than root --------------------------------------------------------------------

class OrdinaryUser : public testing::Test {
  protected:
    void SetUp() override {
        if (geteuid() != 0) {
            GTEST_SKIP() << "needs root, to be two users";
        }
        ASSERT_EQ(0, chmod(root_.folder().c_str(), 0755));
        root_.makeFolder("/tmp");
        ASSERT_EQ(0, chmod(root_.path("/tmp").c_str(), 01777));
    }

    // Asks as an ordinary user, on a machine where nobody has prepared a folder for it.
    static Answer askAsNobody() {
        EXPECT_EQ(0, seteuid(kNobody));
        Answer answer = ask();
        EXPECT_EQ(0, seteuid(0));
        return answer;
    }

    TemporaryRoot root_;
    LogRecorder log_;
};

TEST_F(OrdinaryUser, IsAnswered) {
    const StandInProgram program(root_, answering(ntResponse()));
    EXPECT_EQ((Answer{0, ntResponse()}), askAsNobody());
    EXPECT_THAT(root_.list("/tmp"), ElementsAre("lanyard-65534"));
    EXPECT_EQ(0700U, root_.mode("/tmp/lanyard-65534"));
    EXPECT_LOG(log_);
}

TEST_F(OrdinaryUser, FileThatItCannotRemoveEndsTheRunBeforeItStarts) {
    plantFile(root_);
    const StandInProgram program(root_, endingWith(0));
    EXPECT_EQ((Answer{0, kNoResponse}), askAsNobody());
    EXPECT_EQ(0U, program.callCount());
    EXPECT_PROBLEMS(log_,
                    "error radMschapNtResponse> /tmp/mschap_nemo cannot be removed: Operation not "
                    "permitted");
}

TEST_F(OrdinaryUser, FileOfALoginOfRootIsNotTheResponse) {
    const StandInProgram program(root_, [](const TemporaryRoot &root, const auto &) {
        EXPECT_EQ(0, seteuid(0));
        plantFile(root);
        EXPECT_EQ(0, seteuid(kNobody));
        return 1;
    });
    EXPECT_EQ((Answer{-1, kNoResponse}), askAsNobody());
}

TEST_F(OrdinaryUser, FileThatRootMadeForItIsTheResponse) {
    ASSERT_EQ(0, chown(root_.path("/tmp").c_str(), kNobody, kNobody));
    const StandInProgram program(root_, [](const TemporaryRoot &root, const auto &) {
        EXPECT_EQ(0, seteuid(0));
        plantFile(root);
        EXPECT_EQ(0, seteuid(kNobody));
        return 0;
    });
    EXPECT_EQ((Answer{0, ntResponse()}), askAsNobody());
}

TEST_F(OrdinaryUser, LockFolderThatSomebodyElseHasTakenIsNotUsed) {
    root_.makeFolder("/tmp/lanyard-65534");
    ASSERT_EQ(0, chmod(root_.path("/tmp/lanyard-65534").c_str(), 0777));
    const StandInProgram program(root_, answering(ntResponse()));
    EXPECT_EQ((Answer{0, kNoResponse}), askAsNobody());
    EXPECT_EQ(0U, program.callCount());
    EXPECT_THAT(log_.texts(), ElementsAre(HasSubstr("no lock for /tmp/mschap_nemo")));
    EXPECT_THAT(root_.list("/tmp/lanyard-65534"), IsEmpty());
}

TEST_F(OrdinaryUser, FolderThatIsPreparedForItIsUsed) {
    root_.makeFolder("/tmp/lanyard-65534");
    root_.makeFolder("/run/lanyard-65534");
    ASSERT_EQ(0, chmod(root_.path("/run/lanyard-65534").c_str(), 0700));
    ASSERT_EQ(0, chown(root_.path("/run/lanyard-65534").c_str(), kNobody, kNobody));
    const StandInProgram program(root_, answering(ntResponse()));
    EXPECT_BYTES_EQ(ntResponse(), askAsNobody().response);
    EXPECT_THAT(root_.list("/tmp/lanyard-65534"), IsEmpty());
}

}  // namespace
}  // namespace lanyard::test::nt_response_file_test
