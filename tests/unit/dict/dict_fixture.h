// What the tests of the dictionary start from: memory, no dictionary, and a record of the log. At
// the end nothing of the dictionary may be left.
#ifndef LANYARD_TESTS_UNIT_DICT_DICT_FIXTURE_H
#define LANYARD_TESTS_UNIT_DICT_DICT_FIXTURE_H

#include <gtest/gtest.h>

#include <lanyard/radius/dict.h>
#include <lanyard/radius/frame.h>

#include "tests/support/failing_partition.h"
#include "tests/support/log_recorder.h"

namespace lanyard::test {

class DictTest : public testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(0, radMemInit(RAD_PARTITION_SIZE)); }

    void TearDown() override {
        stopFailing();
        EXPECT_EQ(0, radDictUnload());
        EXPECT_EQ(0U, liveBlocks());
        EXPECT_EQ(0, radMemCleanUp());
    }

    LogRecorder log;
};

}  // namespace lanyard::test

#endif
