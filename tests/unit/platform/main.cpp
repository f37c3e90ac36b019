#include <gtest/gtest.h>

#include "role.h"

int main(int argc, char **argv) {
    int status = 0;
    if (test::playRole(argc, argv, status)) {
        return status;
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
