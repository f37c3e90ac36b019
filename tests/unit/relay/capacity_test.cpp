// How much fits into the partition that the library makes for itself, with the OS layer's own
// bookkeeping.
#include <algorithm>
#include <iostream>

#include <lanyard/radius/frame.h>
#include <palcore.h>

#include "tests/support/test.h"
#include "tests/unit/relay/in_flight_fixture.h"

namespace lanyard::test::capacity_test {
namespace {

// Conversations of a usual size: a name of eight bytes and a State of 16 bytes.
constexpr uint32_t kConversations = 200;
constexpr size_t kStateSize = 16;

// What is left of the library's partition, found by taking it in small pieces.
size_t left() {
    constexpr uint32_t kPiece = 64;
    std::vector<void *> pieces;
    while (void *piece = palMemPartAlloc(radMemPartId, kPiece)) {
        pieces.push_back(piece);
    }
    for (void *piece : pieces) {
        palMemPartFree(radMemPartId, piece);
    }
    return pieces.size() * kPiece;
}

class Capacity : public InFlightTest, public testing::WithParamInterface<int> {
  protected:
    Capacity() {
        setLimit(GetParam());
        const Bytes state(kStateSize, 's');
        server.otherwise(challenge(eapMessage(eapRequest(8, 22), Attributes().add(24, state))));
    }

    // In turn, as the library's own partition has no room for many requests besides.
    std::vector<Step> rounds(uint32_t count) {
        std::vector<Step> steps;
        for (uint32_t cookie = 1; cookie <= count; ++cookie) {
            steps.push_back(
                hand(cookie, identityResponse(7, "user" + std::to_string(1000 + cookie))));
            steps.push_back(awaitSent(cookie));
        }
        return steps;
    }
};

TEST_P(Capacity, UsualConversations_FitIntoTheLibrarysPartition) {
    std::vector<Step> steps = rounds(kConversations);
    steps.push_back(perform([&] {
        EXPECT_EQ(kConversations, conversations().size());
        for (const RadEapQueueEntry *entry : conversations()) {
            EXPECT_NE(nullptr, entry->identity);
            EXPECT_NE(nullptr, entry->state);
        }
        std::cout << kConversations << " conversations leave " << left() << " bytes of "
                  << RAD_PARTITION_SIZE << "\n";
    }));
    serve(steps);
    EXPECT_TRUE(std::all_of(bus.sent.begin(), bus.sent.end(),
                            [](const Sent &sent) { return sent.payload() == eapRequest(8, 22); }));
}

INSTANTIATE_TEST_SUITE_P(Modes, Capacity, testing::Values(1, 64), [](const auto &limit) {
    return limit.param == 1 ? "OneAtATime" : "InFlight";
});

using RequestCost = InFlightTest;

// With an EAP packet of 22 bytes and one of 1400.
TEST_F(RequestCost, OfARequestInFlight_IsSmall) {
    constexpr size_t kRequests = 8;
    constexpr size_t kMost[] = {1800, 5000};
    server.otherwise(silence());
    size_t size = 0;
    for (const size_t packet : {22U, 1400U}) {
        size_t before = 0;
        std::vector<Step> steps{hand(1, eapResponse(7, packet)), turns(1)[0],
                                perform([&] { before = left(); })};
        for (uint32_t cookie = 2; cookie < 2 + kRequests; ++cookie) {
            steps.push_back(hand(cookie, eapResponse(7, packet)));
        }
        steps.push_back(turns(1)[0]);
        steps.push_back(perform([&] {
            EXPECT_EQ(kRequests + 1, status().at("in_flight"));
            const size_t cost = (before - left()) / kRequests;
            std::cout << "a conversation with a request in flight of " << packet
                      << " bytes of EAP takes " << cost << " bytes\n";
            EXPECT_LT(cost, kMost[size++]);
        }));
        serve(steps);
    }
}

}  // namespace
}  // namespace lanyard::test::capacity_test
