// The busy handler. asprintf, calloc, fsync and palFileClose fail on order (FailingCall).
//
//     BusyHandler handler([&](const void *context, int count) { ...; return 0; });
#ifndef LANYARD_TESTS_UNIT_MGMT_SYSTEM_CALLS_H
#define LANYARD_TESTS_UNIT_MGMT_SYSTEM_CALLS_H

#include <functional>

namespace lanyard::test {

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
