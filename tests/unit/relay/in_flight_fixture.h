// The relay with many requests in flight, played step by step.
//
//     serve({hand(1, identityResponse(7, "alice")),
//            await([&] { return bus.sent.size() == 1; }),
//            perform([&] { expectFailure(1, 7, RAD_EAP_FAILED_REJECTED); })});
//
// Each step is a look at the bus, between which the relay reads replies and sends requests. The relay
// ends after the last step.
#ifndef LANYARD_TESTS_UNIT_EAP_IN_FLIGHT_FIXTURE_H
#define LANYARD_TESTS_UNIT_EAP_IN_FLIGHT_FIXTURE_H

#include <functional>
#include <nlohmann/json.hpp>

#include "tests/support/gate.h"
#include "tests/unit/relay/fixture.h"

namespace lanyard::test {

class InFlightTest : public EapTest {
  protected:
    using Step = std::function<int()>;

    explicit InFlightTest(uint32_t partition = 0);
    ~InFlightTest() override;

    static void setLimit(int requests);

    // Starts the relay, takes it through the steps and ends it.
    void serve(const std::vector<Step> &steps);

    // A record of Pnac's.
    static Step hand(uint32_t cookie, const Bytes &packet);
    static Step handWith(uint32_t cookie, const Bytes &packet, const Bytes &portInfo);
    static Step perform(const std::function<void()> &action);
    // Waits for a condition; one that does not come true in 20 seconds fails the test and ends the
    // relay.
    Step await(const std::function<bool()> &condition);
    Step awaitSent(size_t records);
    Step awaitAsked(size_t requests);
    // A number of turns of the relay.
    static std::vector<Step> turns(size_t count);

    // What the relay says when it is asked for its status.
    static nlohmann::json status();
    // The same of one server.
    static nlohmann::json statusOf(const ScriptedServer &server);

    // Expects the index-th record to be the relay's own Success or Failure with that block.
    void expectVerdict(size_t index, uint32_t cookie, ByteView payload);
    void expectFailure(size_t index, uint32_t cookie, uint8_t identifier, uint8_t reason);

    // Puts another server in the place of the one that the library is configured for.
    static void configure(const ServerEntry &entry);

    static Attributes signedAttributes() { return Attributes().addMessageAuthenticator(); }
};

}  // namespace lanyard::test

#endif
