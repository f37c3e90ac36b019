// Calls that fail on order, in place of the C library's and the OS layer's, and the busy handler.
//
//     failNext(Call::asprintf);
//     EXPECT_EQ(-1, radiusAuthServerHandler(...));
//     EXPECT_TRUE(hasFailed(Call::asprintf));
//
//     BusyHandler handler([&](const void *context, int count) { ...; return 0; });
#ifndef LANYARD_TESTS_UNIT_MGMT_SYSTEM_CALLS_H
#define LANYARD_TESTS_UNIT_MGMT_SYSTEM_CALLS_H

#include <functional>

namespace lanyard::test {

enum class Call { asprintf, calloc, palFileClose };

// The next such call fails, of memory or of disk space.
void failNext(Call call);

// Whether the failure that was ordered last has come to pass; there is no order any more then.
bool hasFailed(Call call);

// What sqliteBusyHandler() does for as long as the object is there, one at a time; without one it
// gives up.
class BusyHandler {
  public:
    using Function = std::function<int(const void *context, int count)>;

    explicit BusyHandler(Function function);
    BusyHandler(const BusyHandler &) = delete;
    BusyHandler &operator=(const BusyHandler &) = delete;
    ~BusyHandler();
};

}  // namespace lanyard::test

#endif
