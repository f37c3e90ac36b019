// Start-up and shutdown of the library.
#include <ciph.h>
#include <lanyard/radius/conf.h>
#include <lanyard/radius/dict.h>
#include <lanyard/radius/frame.h>
#include <palcore.h>

#include "tests/support/test.h"
#include "tests/unit/base/fresh_process.h"

namespace {

// What the stand-in for the crypto layer's set-up saw.
struct CryptoSetUp {
    unsigned calls = 0;
    int result = 0;
    uint32_t partition = 0;   // the library's, at the last call
    bool hasTimeout = false;  // whether the configuration had been read by then
};

CryptoSetUp crypto;

}  // namespace

int ciphMD5Init(void) {
    ++crypto.calls;
    crypto.partition = radMemPartId;
    crypto.hasTimeout = radConfGet(RAD_CONF_TIMEOUT) != nullptr;
    return crypto.result;
}

namespace lanyard::test::startup_test {
namespace {

using testing::Contains;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char *kConf = "/var/radius.conf";
constexpr const char *kOtherConf = "/var/other.conf";
constexpr const char *kMissingConf = "/var/missing.conf";

class StartUp : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(0U, radMemPartId);
        forgetPartitions();
        crypto = {};
        root_.write(kConf, "authserver 127.0.0.1:s3cr3t\n");
        root_.write(kOtherConf, "authserver 127.0.0.2:s3cr3t,127.0.0.3:s3cr3t\n");
    }

    void TearDown() override {
        stopFailing();
        EXPECT_EQ(0, radLibExit());
        EXPECT_EQ(0U, radMemPartId);
        for (const PartitionRecord &record : partitions()) {
            EXPECT_TRUE(record.destroyed);
            EXPECT_EQ(0U, record.blocksAtDestroy);
        }
        EXPECT_EQ(0U, liveBlocks());
    }

    LogRecorder log;

  private:
    TemporaryRoot root_;
};

TEST_F(StartUp, WithoutAFileLeavesConfiguringToTheCaller) {
    EXPECT_EQ(0, radLibInit(nullptr));
    ASSERT_THAT(partitions(), SizeIs(1));
    EXPECT_EQ("radiusPartition", partitions()[0].name);
    EXPECT_EQ(102400U, partitions()[0].size);
    EXPECT_EQ(partitions()[0].id, radMemPartId);
    EXPECT_EQ(1U, crypto.calls);
    EXPECT_EQ(radMemPartId, crypto.partition);
    EXPECT_EQ(0U, liveBlocks());
    EXPECT_EQ(nullptr, radDictGetAttr(1));
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_AUTH));
}

TEST_F(StartUp, LogsNothingItself) {
    EXPECT_EQ(0, radMemInit(RAD_PARTITION_SIZE));
    EXPECT_EQ(0, radConfSetTimeout("1"));  // keeps the stand-in's question out of the log
    log.clear();
    EXPECT_EQ(0, radLibInit(nullptr));
    EXPECT_LOG(log);
}

TEST_F(StartUp, HappensOnce) {
    EXPECT_EQ(0, radLibInit(nullptr));
    log.clear();
    EXPECT_EQ(0, radLibInit(nullptr));
    EXPECT_EQ(0, radLibInit(kConf));
    EXPECT_EQ(0, radLibInit(kMissingConf));
    EXPECT_LOG(log);
    EXPECT_THAT(partitions(), SizeIs(1));
    EXPECT_EQ(1U, crypto.calls);
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_AUTH));
}

TEST_F(StartUp, ReadsTheFile) {
    EXPECT_EQ(0, radLibInit(kConf));
    EXPECT_EQ(1, radConfGetNumServers(RAD_SERVER_AUTH));
    EXPECT_NE(nullptr, radDictGetAttr(1));
    EXPECT_LOGGED(log, 128, "radConfigure", "RADIUS Configured\n");
    EXPECT_PROBLEMS(log);
    // Memory first, then the crypto layer, then the file.
    EXPECT_EQ(1U, crypto.calls);
    EXPECT_EQ(radMemPartId, crypto.partition);
    EXPECT_FALSE(crypto.hasTimeout);

    // A second call does not read another one.
    log.clear();
    EXPECT_EQ(0, radLibInit(kOtherConf));
    EXPECT_EQ(1, radConfGetNumServers(RAD_SERVER_AUTH));
    EXPECT_LOG(log);
}

TEST_F(StartUp, ThatFailedIsTriedAgain) {
    EXPECT_EQ(-1, radLibInit(kMissingConf));
    EXPECT_PROBLEMS(log,
                    "error radConfigure: can't open /var/missing.conf: No such file or directory");
    const uint32_t partition = radMemPartId;
    EXPECT_NE(0U, partition);

    EXPECT_EQ(-1, radLibInit(kMissingConf));
    EXPECT_EQ(2U, crypto.calls);
    EXPECT_EQ(0, radLibInit(kConf));
    EXPECT_EQ(1, radConfGetNumServers(RAD_SERVER_AUTH));
    EXPECT_EQ(partition, radMemPartId);
    EXPECT_THAT(partitions(), SizeIs(1));
}

TEST_F(StartUp, WithoutAFileMakesUpForOneThatFailed) {
    EXPECT_EQ(-1, radLibInit(kMissingConf));
    EXPECT_EQ(0, radLibInit(nullptr));
    log.clear();
    EXPECT_EQ(0, radLibInit(kMissingConf));
    EXPECT_LOG(log);
}

TEST_F(StartUp, GoesOnWithoutAPartition) {
    failCreation();
    EXPECT_EQ(0, radLibInit(nullptr));
    EXPECT_EQ(0U, radMemPartId);
    EXPECT_EQ(1U, crypto.calls);
    EXPECT_PROBLEMS(log);
}

TEST_F(StartUp, GoesOnWhateverTheCryptoLayerSays) {
    crypto.result = -1;
    EXPECT_EQ(0, radCryptoInit());
    EXPECT_EQ(1U, crypto.calls);
    EXPECT_EQ(0, radLibInit(nullptr));
    EXPECT_EQ(2U, crypto.calls);
    EXPECT_PROBLEMS(log);
}

TEST_F(StartUp, LeavesNothingBehindWhicheverAllocationFails) {
    const unsigned failures = forEachFailingAllocation([] {
        const int status = radLibInit(kConf);
        if (!allocationFailed()) {
            EXPECT_EQ(0, status);
        }
        EXPECT_NE(0U, radMemPartId);
        EXPECT_EQ(0, radLibExit());
        EXPECT_EQ(0U, partitions().back().blocksAtDestroy);
        forgetPartitions();
    });
    const size_t before = allocationCount();
    ASSERT_EQ(0, radDictLoad(nullptr));
    const size_t dictionary = allocationCount() - before;
    EXPECT_EQ(0, radDictUnload());
    EXPECT_EQ(dictionary + 2 + 3, failures)
        << "the dictionary, two defaults, and list, host and secret";
}

TEST_F(StartUp, IsUndoneByShutdown) {
    ASSERT_EQ(0, radLibInit(kConf));
    log.clear();
    EXPECT_EQ(0, radLibExit());
    EXPECT_EQ("RADIUS Deconfigured\n", log.texts().back());
    EXPECT_PROBLEMS(log);
    EXPECT_EQ(0U, radMemPartId);
    ASSERT_THAT(partitions(), SizeIs(1));
    EXPECT_TRUE(partitions()[0].destroyed);
    // The configuration goes while its memory is still there.
    EXPECT_EQ(0U, partitions()[0].blocksAtDestroy);
    EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_AUTH));
    for (uint32_t option = 0; option < 5; ++option) {
        EXPECT_EQ(nullptr, radConfGet(option));
    }
    EXPECT_EQ(nullptr, radDictGetAttr(1));

    // And may happen anew.
    EXPECT_EQ(0, radLibInit(kOtherConf));
    EXPECT_EQ(2, radConfGetNumServers(RAD_SERVER_AUTH));
    EXPECT_THAT(partitions(), SizeIs(2));
}

TEST_F(StartUp, LeavesHooksAlone) {
    const RadFuncTbl none = {};
    ASSERT_EQ(0, radFuncTblInstall(&none));
    const RadFuncTbl *installed = pRadFuncTbl;
    EXPECT_EQ(0, radLibInit(nullptr));
    EXPECT_EQ(installed, pRadFuncTbl);
    EXPECT_EQ(0, radLibExit());
    EXPECT_EQ(installed, pRadFuncTbl);
    EXPECT_EQ(0, radFuncTblUninstall());
}

TEST(Shutdown, NeedsNoStartUp) {
    EXPECT_PASSES_IN_FRESH_PROCESS({
        const LogRecorder log;
        EXPECT_EQ(0, radLibExit());
        EXPECT_THAT(log.lines(),
                    Contains(Logged(7, 128, "radDeconfigure", "RADIUS Deconfigured\n")));
        EXPECT_EQ(0, radLibExit());
        EXPECT_EQ(0U, radMemPartId);
        EXPECT_THAT(partitions(), IsEmpty());
    });
}

TEST(StartUpInTheHostsPartition, CreatesAndDestroysNone) {
    EXPECT_PASSES_IN_FRESH_PROCESS({
        const TemporaryRoot root;
        root.write(kConf, "authserver 127.0.0.1:s3cr3t\n");
        const PalMemPartId host = palMemPartCreate("host", nullptr, 102400);
        EXPECT_EQ(0, radiusPartIdInit(host));
        EXPECT_EQ(0, radLibInit(kConf));
        EXPECT_EQ(host, radMemPartId);
        EXPECT_THAT(partitions(), SizeIs(1));
        EXPECT_LT(0U, liveBlocks(host));
        EXPECT_EQ(0, radLibExit());
        EXPECT_EQ(host, radMemPartId);
        EXPECT_EQ(0U, liveBlocks(host));
        EXPECT_FALSE(partitions()[0].destroyed);

        // The host's partition serves the next start as well.
        EXPECT_EQ(0, radLibInit(kConf));
        EXPECT_EQ(0, radLibExit());
        EXPECT_THAT(partitions(), SizeIs(1));
        EXPECT_EQ(0U, liveBlocks());
        EXPECT_EQ(0, palMemPartDestroy(host));
    });
}

}  // namespace
}  // namespace lanyard::test::startup_test
