// Many requests in flight with each allocation failing in turn: nothing is left behind, Pnac gets whole
// packets or none, and the relay goes on.
#include <algorithm>
#include <array>
#include <chrono>
#include <string_view>

#include <lanyard/radius/frame.h>

#include "tests/support/test.h"
#include "tests/unit/relay/in_flight_fixture.h"

namespace lanyard::test::in_flight_memory_test {
namespace {

using testing::AnyOf;
using testing::Each;
using testing::ElementsAre;
using testing::Eq;

const Bytes kPortInfo = "0010 0108 020000000001 0406 65746830"_hex;

class InFlightMemory : public InFlightTest {
  protected:
    // Whether nothing is left to be sent or waited for. A relay that found no memory for its loop
    // serves one by one, and gives no status.
    static bool isIdle() {
        std::array<char, 4096> text{};
        auto size = static_cast<uint32_t>(text.size());
        radEapIoctlHandler(nullptr, nullptr, RAD_EAP_CMD_STATUS, text.data(), 0, text.data(),
                           &size);
        const std::string_view status = text.data();
        const std::vector<RadEapQueueEntry *> all = conversations();
        return (status.empty() || status.find("\"in_flight\":0,") != std::string_view::npos) &&
               std::none_of(all.begin(), all.end(),
                            [](const RadEapQueueEntry *entry) { return entry->packet != nullptr; });
    }

    // What has gone to Pnac, all of it.
    std::vector<Bytes> payloads() {
        std::vector<Bytes> all;
        for (const Sent &sent : bus.sent) {
            all.push_back(sent.payload());
            EXPECT_EQ(all.back().size(), sent.word(2));
        }
        bus.sent.clear();
        return all;
    }

    // Runs the relay with the 1st, 2nd, ... allocation failing; a run ends when nothing is left to do.
    unsigned eachFailing(std::vector<Step> steps, const std::function<void()> &check) {
        // A reply that finds no memory comes again with the next send, after a second.
        configure(serverEntry(server, 1, 1));
        steps.push_back(turns(1)[0]);
        steps.push_back(await(isIdle));
        return forEachFailingAllocation([&] {
            serve(steps);
            check();
        });
    }
};

TEST_F(InFlightMemory, OfAChallengeAndAnAccept_MayFail) {
    const Bytes packet = eapRequest(8, 300);
    server.otherwise(respond([&](const ReceivedRequest &request) -> std::optional<Bytes> {
        return attributeValues(request, 24).empty()
                   ? makeReply(11, request, kSecret,
                               eapMessage(packet, Attributes().addText(24, "state")))
                   : makeReply(2, request, kSecret,
                               Attributes().addInteger(27, 60).addMessageAuthenticator());
    }));
    const Bytes success = "03080004 0008 0506 0000003c"_hex;
    int completed = 0;
    const unsigned failures = eachFailing(
        {handWith(1, identityResponse(7, "alice"), kPortInfo), turns(1)[0], await(isIdle),
         handWith(1, eapResponse(8, 300), kPortInfo)},
        [&] {
            const std::vector<Bytes> sent = payloads();
            EXPECT_LE(sent.size(), 2U);
            // Also the failures of one by one, when there was no loop.
            EXPECT_THAT(
                sent, Each(AnyOf(Eq(packet), Eq(success), Eq("04070004"_hex), Eq("04080004"_hex),
                                 Eq("04070004 0005 060303"_hex), Eq("04080004 0005 060303"_hex),
                                 Eq("04070004 0005 060302"_hex), Eq("04080004 0005 060302"_hex))));
            if (!allocationFailed()) {
                EXPECT_THAT(sent, ElementsAre(packet, success));
            }
            completed += static_cast<int>(std::count(sent.begin(), sent.end(), success));
        });
    EXPECT_GT(failures, 40U);
    EXPECT_GT(completed, 2) << "some runs went on after the failure";
}

TEST_F(InFlightMemory, OfARejectMayFail) {
    server.otherwise(reject(signedAttributes()));
    const unsigned failures = eachFailing({hand(1, identityResponse(7, "alice"))}, [&] {
        const std::vector<Bytes> sent = payloads();
        EXPECT_LE(sent.size(), 1U);
        EXPECT_THAT(sent,
                    Each(AnyOf(Eq("04070004"_hex), Eq("04070004 0005 060301"_hex),
                               Eq("04070004 0005 060302"_hex), Eq("04070004 0005 060303"_hex))));
        if (!allocationFailed()) {
            EXPECT_THAT(sent, ElementsAre("04070004 0005 060301"_hex));
        }
    });
    EXPECT_GT(failures, 10U);
}

// Requests that are cancelled and a relay that ends in the middle.
TEST_F(InFlightMemory, OfAnEndInFlightMayFail) {
    // So that one by one, when there was no loop, does not wait for long.
    server.otherwise(reject(signedAttributes()).delayed(std::chrono::milliseconds(50)));
    const unsigned failures = forEachFailingAllocation([&] {
        serve({hand(1, identityResponse(7, "alice")), hand(2, identityResponse(7, "bob")),
               turns(1)[0], hand(1, identityResponse(8, "alice")), turns(1)[0],
               hand(2, eapResponse(8, 22)), turns(1)[0]});
        EXPECT_TRUE(conversations().empty());
        bus.sent.clear();
    });
    EXPECT_GT(failures, 30U);
}

}  // namespace
}  // namespace lanyard::test::in_flight_memory_test
