// What the methods leave of their last request: nothing of an earlier one.
#include <array>
#include <functional>
#include <gtest/gtest.h>
#include <string>

#include <lanyard/radius/engine.h>
#include <lanyard/radius/error.h>
#include <lanyard/radius/methods.h>

#include "tests/support/failing_partition.h"
#include "tests/unit/login/outcome.h"

namespace lanyard::test {
namespace {

constexpr const char *kPassword = "arctangent";

// Leaves a record of this thread's own.
void leaveRecord() {
    RadPair *pairs = nullptr;
    ASSERT_NE(nullptr, radPairAdd(&pairs, RAD_ATTR_USER_NAME, "nemo", 0));
    RadPair *reply = nullptr;
    EXPECT_EQ(-1, radBuildAndSendReq(RAD_CODE_ACCESS_REQUEST, pairs, &reply));
    radPairListFree(pairs);
    ASSERT_NE(nullptr, radLastError());
}

TEST(LastError, LoginThatIsRefusedBeforeItsRequest_LeavesNone) {
    const ConfiguredLibrary library;
    const std::string name(RAD_USER_NAME_MAX + 1, 'n');
    const char *user = name.c_str();
    std::array<uint8_t, RAD_CHAP_RESPONSE_SIZE> octets{};
    std::array<int32_t, 8> results{};
    const auto size = static_cast<int>(octets.size());
    const std::function<int()> calls[] = {
        [&] { return radAuth(user, kPassword); },
        [&] { return radAuthCheckAllServer(user, kPassword, results.data()); },
        [&] { return radAuthAndGetAttributes(user, kPassword, nullptr, nullptr); },
        [&] { return radChapAuth(user, octets.data(), size, octets.data(), size); },
        [&] {
            return radChapAuthAndGetAttributes(user, octets.data(), size, octets.data(), size,
                                               nullptr, nullptr);
        },
        [&] { return radMschap(user, kPassword); },
        [&] { return radMschapAndGetAttributes(user, kPassword, nullptr, nullptr); },
        [&] { return radMschapv2(user, kPassword); },
        [&] { return radMschapv2AndGetAttributes(user, kPassword, nullptr, nullptr); }};
    for (const auto &call : calls) {
        leaveRecord();
        EXPECT_EQ(-1, call());
        EXPECT_EQ(nullptr, radLastError()) << "call " << &call - &calls[0];
    }
}

TEST(LastError, AccountingWithoutMemoryForItsRequest_LeavesNone) {
    const ConfiguredLibrary library;
    leaveRecord();
    failAllocation(1);
    EXPECT_EQ(-1, radAcct(1));
    stopFailing();
    EXPECT_EQ(nullptr, radLastError());
}

}  // namespace
}  // namespace lanyard::test
