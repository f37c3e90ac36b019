// The tests of the port; the program also plays the roles of its tests.
#include <gtest/gtest.h>

#include "tests/unit/platform/role.h"

int main(int argc, char **argv) {
    int status = 0;
    if (lanyard::test::playRole(argc, argv, status)) {
        return status;
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
