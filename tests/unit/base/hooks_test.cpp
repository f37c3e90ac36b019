// The installable per-attribute hooks.
#include <lanyard/radius/frame.h>

#include "tests/support/test.h"
#include "tests/unit/base/fresh_process.h"

namespace lanyard::test::hooks_test {
namespace {

int packHook(uint8_t * /*value*/, uint8_t * /*length*/, const RadPair * /*pair*/,
             const char * /*secret*/, RadPacket * /*packet*/) {
    return 1;
}

int otherPackHook(uint8_t * /*value*/, uint8_t * /*length*/, const RadPair * /*pair*/,
                  const char * /*secret*/, RadPacket * /*packet*/) {
    return 0;
}

int unpackHook(RadPair * /*pair*/, RadPair * /*list*/, RadPacket * /*reply*/,
               RadPacket * /*request*/, const char * /*secret*/) {
    return 1;
}

class Hooks : public testing::Test {
  protected:
    void TearDown() override {
        EXPECT_EQ(0, radFuncTblUninstall());
        EXPECT_LOG(log_);
    }

  private:
    LogRecorder log_;
};

TEST(HooksAtStart, AreNotInstalled) {
    EXPECT_PASSES_IN_FRESH_PROCESS({ EXPECT_EQ(nullptr, pRadFuncTbl); });
}

TEST_F(Hooks, AreCopiedSoThatTheCallersTableNeedNotLast) {
    RadFuncTbl table = {.radPackHook = packHook, .radUnpackHook = unpackHook};
    EXPECT_EQ(0, radFuncTblInstall(&table));
    ASSERT_NE(nullptr, pRadFuncTbl);
    EXPECT_NE(&table, pRadFuncTbl);
    table = {};
    EXPECT_EQ(packHook, pRadFuncTbl->radPackHook);
    EXPECT_EQ(unpackHook, pRadFuncTbl->radUnpackHook);
}

TEST_F(Hooks, MayBeInstalledOneByOne) {
    const RadFuncTbl packOnly = {.radPackHook = packHook, .radUnpackHook = nullptr};
    EXPECT_EQ(0, radFuncTblInstall(&packOnly));
    ASSERT_NE(nullptr, pRadFuncTbl);
    EXPECT_EQ(packHook, pRadFuncTbl->radPackHook);
    EXPECT_EQ(nullptr, pRadFuncTbl->radUnpackHook);

    const RadFuncTbl unpackOnly = {.radPackHook = nullptr, .radUnpackHook = unpackHook};
    EXPECT_EQ(0, radFuncTblInstall(&unpackOnly));
    ASSERT_NE(nullptr, pRadFuncTbl);
    EXPECT_EQ(nullptr, pRadFuncTbl->radPackHook);
    EXPECT_EQ(unpackHook, pRadFuncTbl->radUnpackHook);
}

TEST_F(Hooks, OfALaterTableReplaceThoseOfAnEarlierOne) {
    const RadFuncTbl first = {.radPackHook = packHook, .radUnpackHook = unpackHook};
    const RadFuncTbl second = {.radPackHook = otherPackHook, .radUnpackHook = nullptr};
    EXPECT_EQ(0, radFuncTblInstall(&first));
    const RadFuncTbl *own = pRadFuncTbl;
    EXPECT_EQ(0, radFuncTblInstall(&second));
    ASSERT_EQ(own, pRadFuncTbl);
    EXPECT_EQ(otherPackHook, pRadFuncTbl->radPackHook);
    EXPECT_EQ(nullptr, pRadFuncTbl->radUnpackHook);
}

TEST_F(Hooks, StayWhenNoTableIsGiven) {
    EXPECT_EQ(-1, radFuncTblInstall(nullptr));
    EXPECT_EQ(nullptr, pRadFuncTbl);

    const RadFuncTbl table = {.radPackHook = packHook, .radUnpackHook = unpackHook};
    EXPECT_EQ(0, radFuncTblInstall(&table));
    EXPECT_EQ(-1, radFuncTblInstall(nullptr));
    ASSERT_NE(nullptr, pRadFuncTbl);
    EXPECT_EQ(packHook, pRadFuncTbl->radPackHook);
    EXPECT_EQ(unpackHook, pRadFuncTbl->radUnpackHook);
}

TEST_F(Hooks, GoWhenTheyAreUninstalled) {
    const RadFuncTbl table = {.radPackHook = packHook, .radUnpackHook = unpackHook};
    EXPECT_EQ(0, radFuncTblInstall(&table));
    const RadFuncTbl *own = pRadFuncTbl;
    EXPECT_EQ(0, radFuncTblUninstall());
    EXPECT_EQ(nullptr, pRadFuncTbl);
    EXPECT_EQ(nullptr, own->radPackHook);
    EXPECT_EQ(nullptr, own->radUnpackHook);
    EXPECT_EQ(0, radFuncTblUninstall());
    EXPECT_EQ(nullptr, pRadFuncTbl);
}

}  // namespace
}  // namespace lanyard::test::hooks_test
