// A hundred thousand EAP conversations through one radeapd, while the database changes as often as once a minute
// for a day.
#include <atomic>
#include <chrono>
#include <deque>
#include <string>
#include <thread>

#include <palroot.h>

#include "tests/e2e/end_to_end.h"
#include "tests/soak/soak.h"
#include "tests/support/radius_wire.h"
#include "tests/support/tireless_server.h"
#include "tools/pnac_wired/bus.h"
#include "tools/pnac_wired/relay_record.h"

namespace lanyard::test::relay_soak {
namespace {

using namespace std::chrono_literals;
using pnac::HandOver;

constexpr const char *kSecret = "xyzzy5461";
constexpr uint32_t kMicrosoft = 311;
constexpr uint32_t kRejectedEvery = 10;
constexpr uint8_t kType = 4;

Bytes eapPacket(EapCode code, uint8_t identifier, ByteView data) {
    Bytes packet = {static_cast<uint8_t>(code), identifier, 0,
                    static_cast<uint8_t>(kEapHeaderSize + data.size())};
    packet.insert(packet.end(), data.begin(), data.end());
    return packet;
}

Bytes identityOf(uint32_t cookie) {
    const std::string name = cookie % kRejectedEvery == 0 ? "mallory" : "alice";
    return eapPacket(EapCode::kResponse, 1, concatenate({Bytes{1}, fromText(name)}));
}

// An identity is challenged; the response to that is a verdict, by the name.
std::optional<Bytes> judge(ByteView request) {
    const Bytes eap = attributeValue(request, 79);
    const auto next = static_cast<uint8_t>(eap.at(1) + 1);
    Attributes attributes;
    if (attributeValues(request, 24).empty()) {
        attributes.add(79, eapPacket(EapCode::kRequest, next, Bytes(18, kType)))
            .addText(24, "state of 16 byte")
            .addMessageAuthenticator();
        return makeReply(11, request, kSecret, attributes);
    }
    if (toText(attributeValue(request, 1)) == "mallory") {
        attributes.add(79, eapPacket(EapCode::kFailure, eap.at(1), {})).addMessageAuthenticator();
        return makeReply(3, request, kSecret, attributes);
    }
    const ByteView authenticator = request.subspan(4, 16);
    attributes.add(79, eapPacket(EapCode::kSuccess, eap.at(1), {}))
        .addVendor(kMicrosoft, 17, encryptMppeKey(Bytes(32, 'r'), kSecret, authenticator))
        .addVendor(kMicrosoft, 16, encryptMppeKey(Bytes(32, 's'), kSecret, authenticator))
        .addInteger(27, 3600)
        .addMessageAuthenticator();
    return makeReply(2, request, kSecret, attributes);
}

// An authenticator with many supplicants.
class Port {
  public:
    Port() : bus_([this](pnac::ByteView record) { take(record); }) {}

    // Takes conversations through, so many at a time; false when nothing comes any more.
    [[nodiscard]] bool converse(uint32_t number) {
        const uint32_t last = next_ + number;
        while (next_ < last || inProgress_ > 0) {
            for (; next_ < last && inProgress_ < kAtOnce; ++next_, ++inProgress_) {
                toSend_.push_back(pnac::buildRecord(next_, identityOf(next_)));
            }
            sendAll();
            if (!bus_.listen(toSend_.empty() ? kPatience : 1ms) && toSend_.empty()) {
                return false;
            }
        }
        return true;
    }

    uint32_t wrong = 0;  // verdicts that are not as they should be

  private:
    static constexpr uint32_t kAtOnce = 48;
    static constexpr std::chrono::microseconds kPatience = 30s;

    void sendAll() {
        while (!toSend_.empty() && bus_.send(toSend_.front()) == HandOver::kTaken) {
            toSend_.pop_front();
        }
    }

    void take(pnac::ByteView bytes) {
        const auto record = pnac::parseRecord(bytes);
        ASSERT_TRUE(record);
        if (record->eap.code == EapCode::kRequest) {
            toSend_.push_back(pnac::buildRecord(
                record->cookie,
                eapPacket(EapCode::kResponse, record->eap.identifier, Bytes(18, kType))));
            return;
        }
        const bool accepted = record->eap.code == EapCode::kSuccess;
        const bool expected = record->cookie % kRejectedEvery != 0;
        wrong += accepted != expected || (accepted && record->keyInfo.recvKey.size() != 32) ? 1 : 0;
        --inProgress_;
    }

    pnac::Bus bus_;
    std::deque<pnac::Bytes> toSend_;
    uint32_t next_ = 1;
    uint32_t inProgress_ = 0;
};

class RelaySoak : public EndToEnd {
  protected:
    void TearDown() override {
        palRootSet(nullptr);
        EndToEnd::TearDown();
    }
};

TEST_F(RelaySoak, HundredThousandConversations_WhileServersChange) {
    const uint32_t conversations = isWholeSoak() ? 100000 : 3000;
    const int changes = isWholeSoak() ? 24 * 60 : 15;
    // It forgets some conversations only with time, so it is given room for all that it may hold first.
    const uint32_t first = isWholeSoak() ? 5000 : 1000;
    const TirelessServer tireless(judge);
    const auto setServer = [&](int timeout) {
        device().change({"set", "127.0.0.1", "--port", std::to_string(tireless.port()), "--secret",
                         kSecret, "--timeout", std::to_string(timeout), "--retries", "3"});
    };
    setServer(10);
    palRootSet(device().root().c_str());
    Port port;
    ASSERT_TRUE(port.converse(first));
    setServer(11);
    const pid_t relay = device().relay();
    const Footprint relayEarly = footprintOf(relay);
    const Footprint serviceEarly = footprintOf(device().service());

    std::atomic<int> changed{0};
    std::thread administrator([&] {
        for (; changed < changes; ++changed) {
            setServer(10 + changed % 2);
        }
    });
    const bool all = port.converse(conversations - first);
    administrator.join();
    EXPECT_TRUE(all);
    EXPECT_EQ(0U, port.wrong);
    EXPECT_LE(2 * conversations, tireless.requests());
    EXPECT_EQ(relay, device().relay()) << "it is the same process";
    expectNoMore("radeapd, " + std::to_string(conversations) + " conversations", relayEarly,
                 footprintOf(relay));
    expectNoMore("service, " + std::to_string(changes) + " changes", serviceEarly,
                 footprintOf(device().service()));
}

}  // namespace
}  // namespace lanyard::test::relay_soak
