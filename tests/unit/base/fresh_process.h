// Code that runs in a process of its own, in which nothing of the library has been touched: for
// what a program starts with, and for what cannot be taken back. The process must have no failed
// expectation and no leak at its end.
//
//     TEST(Memory, StartsWithoutAPartition) {
//         EXPECT_PASSES_IN_FRESH_PROCESS({ EXPECT_EQ(0U, radMemPartId); });
//     }
//
// The test itself must do nothing before: the new process runs it from its beginning.
#ifndef LANYARD_TESTS_UNIT_FRAME_FRESH_PROCESS_H
#define LANYARD_TESTS_UNIT_FRAME_FRESH_PROCESS_H

#include <cstdlib>
#include <gtest/gtest.h>

#define EXPECT_PASSES_IN_FRESH_PROCESS(...)                     \
    do {                                                        \
        GTEST_FLAG_SET(death_test_style, "threadsafe");         \
        EXPECT_EXIT(                                            \
            {                                                   \
                __VA_ARGS__                                     \
                std::exit(testing::Test::HasFailure() ? 1 : 0); \
            },                                                  \
            testing::ExitedWithCode(0), "");                    \
    } while (false)

#endif
