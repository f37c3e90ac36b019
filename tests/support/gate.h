// Holds a scripted server back: it answers nothing behind the gate before that opens.
//
//     Gate gate;
//     server.then(gate.behind(3, Attributes().addMessageAuthenticator()));
//     ... what is to happen while the request waits ...
//     gate.open();
#ifndef LANYARD_TESTS_SUPPORT_GATE_H
#define LANYARD_TESTS_SUPPORT_GATE_H

#include <chrono>
#include <future>
#include <gtest/gtest.h>

#include "tests/support/scripted_server.h"

namespace lanyard::test {

class Gate {
  public:
    void open() { open_.set_value(); }

    // An answer with that code. The server's thread waits with it, so later datagrams wait as well.
    [[nodiscard]] Action behind(uint8_t code, const Attributes &attributes) const {
        return answer(code, [opened = opened_, attributes](const ReceivedRequest & /*request*/) {
            EXPECT_EQ(std::future_status::ready, opened.wait_for(std::chrono::seconds(20)));
            return attributes;
        });
    }

  private:
    std::promise<void> open_;
    std::shared_future<void> opened_{open_.get_future()};
};

}  // namespace lanyard::test

#endif
