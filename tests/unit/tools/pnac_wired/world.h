// An authenticator with everything around it made up: supplicants, the relay and the time.
//
//     World world;
//     Supplicant alice(world, 1);
//     alice.start();
//     alice.identify("alice");
//     world.relaySends(alice.cookie(), eapRequest(7, 4, "0102"_hex));
//     world.pass(3s);
//     EXPECT_EQ(2U, alice.received().size());
#ifndef LANYARD_TESTS_UNIT_PNAC_WIRED_WORLD_H
#define LANYARD_TESTS_UNIT_PNAC_WIRED_WORLD_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/bytes.h"
#include "tools/pnac_wired/authenticator.h"

namespace lanyard::test {

using pnac::EventKind;
using pnac::Mac;
using pnac::Reason;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr Mac kOwnAddress = {0x02, 0, 0, 0, 0, 0xfe};

// Rejected supplicants may try again at once.
inline const pnac::Settings kNeverQuiet = {.quietPeriod = {}};

// Numbers that are the same in every run.
class Random {
  public:
    explicit Random(unsigned seed) : engine_(seed) {}
    uint32_t operator()() { return static_cast<uint32_t>(engine_()); }
    uint32_t below(size_t end) { return static_cast<uint32_t>((*this)() % end); }
    uint8_t octet() { return static_cast<uint8_t>((*this)()); }

  private:
    std::mt19937 engine_;
};

// A supplicant's address.
Mac macOf(unsigned number);

// Frames from a supplicant; `length` is what the EAPOL header says, the body's own size by default.
Bytes eapolFrame(const Mac &source, uint8_t type, ByteView body, uint8_t version = 1,
                 const Mac &destination = pnac::kPaeGroup, int length = -1);

// EAP packets.
Bytes eapRequest(uint8_t identifier, uint8_t type, ByteView data = {});
Bytes eapResponse(uint8_t identifier, uint8_t type, ByteView data = {});
Bytes eapSuccess(uint8_t identifier);
Bytes eapFailure(uint8_t identifier);

// What the relay sends: cookie, 0xffffffff, length and payload, 32-bit words in host byte order.
Bytes relayRecord(uint32_t cookie, ByteView payload, int length = -1);

// A key-information block of those elements.
Bytes keyBlock(std::initializer_list<ByteView> elements);
Bytes keyElement(uint8_t type, ByteView key);
Bytes sessionElement(uint8_t type, uint32_t value);
// A Failure of a relay that says why.
Bytes failureBecause(uint8_t identifier, pnac::FailureReason reason);

// An event with copies of what it referred to.
struct SeenEvent {
    EventKind kind = EventKind::kFailed;
    Reason reason = Reason::kRejected;
    Mac address = {};
    std::string identity = {};
    pnac::Duration duration = {};
    bool reauthentication = false;
    Bytes recvKey = {};
    Bytes sendKey = {};
    std::optional<pnac::SessionTimeout> session = {};
};

MATCHER_P3(Event, kind, reason, identity, "") {
    *result_listener << "an event of kind " << static_cast<int>(arg.kind) << ", reason "
                     << static_cast<int>(arg.reason) << ", identity " << arg.identity;
    return arg.kind == kind && arg.reason == reason && arg.identity == identity;
}

// A frame that the authenticator sent.
struct SentFrame {
    Mac destination = {};
    uint8_t version = 0;
    Bytes eap = {};
};

// A record that it handed to the relay.
struct SentRecord {
    uint32_t cookie = 0;
    uint32_t command = 0;
    Bytes eap = {};
    Bytes portInformation = {};
};

class World final : private pnac::Outlet {
  public:
    enum class Link { up, unknown };

    // The link is up and the request to the group long over, or nothing is known of it.
    explicit World(pnac::Settings settings = {}, Link link = Link::up);
    explicit World(Link link) : World(pnac::Settings(), link) {}

    pnac::Authenticator &authenticator() { return authenticator_; }
    const pnac::Counters &counters() const { return authenticator_.counters(); }
    pnac::Time now() const { return now_; }

    // Lets time pass, in the steps that the authenticator asks for.
    void pass(pnac::Duration duration);

    void receive(ByteView frame) { authenticator_.receiveFrame(frame, now_); }
    void relaySends(uint32_t cookie, ByteView payload) {
        authenticator_.receiveRecord(relayRecord(cookie, payload), now_);
    }

    // The relay's bus takes that many records more; -1 for any number.
    void setRelayRoom(int records) { relayRoom_ = records; }
    void setRelayRunning(bool isRunning) { relayRuns_ = isRunning; }
    // How often a record was offered, taken or not.
    size_t recordsOffered() const { return recordsOffered_; }

    const std::vector<SentFrame> &frames() const { return frames_; }
    const std::vector<SentRecord> &records() const { return records_; }
    const std::vector<SeenEvent> &events() const { return events_; }
    void forget();

  private:
    void sendFrame(ByteView frame) override;
    pnac::HandOver sendRecord(ByteView record) override;
    void report(const pnac::Event &event) override;

    static pnac::Settings withAddress(pnac::Settings settings);

    Random random_{802};
    pnac::Time now_{seconds(1000)};
    int relayRoom_ = -1;
    bool relayRuns_ = true;
    size_t recordsOffered_ = 0;
    std::vector<SentFrame> frames_;
    std::vector<SentRecord> records_;
    std::vector<SeenEvent> events_;
    pnac::Authenticator authenticator_;
};

class Supplicant {
  public:
    Supplicant(World &world, unsigned number, uint8_t version = 1)
        : world_(world), address_(macOf(number)), version_(version) {}

    const Mac &address() const { return address_; }

    void start() { send(1, {}); }
    void logoff() { send(2, {}); }
    void sendEap(ByteView eap) { send(0, eap); }
    // Answers the last request.
    void answer(uint8_t type, ByteView data) { sendEap(eapResponse(identifier(), type, data)); }
    void identify(std::string_view identity) { answer(1, fromText(identity)); }

    // Starts and identifies itself.
    void knock(std::string_view identity);
    // All of a login: knock, one round with the relay, the relay's Success with that block.
    void logIn(std::string_view identity, ByteView block = {});

    // EAP packets that were sent to it alone.
    std::vector<Bytes> received() const;
    // Identifier of the last of them.
    uint8_t identifier() const;
    // Cookie of the last record that came from it.
    uint32_t cookie() const;

  private:
    void send(uint8_t type, ByteView body);

    World &world_;
    Mac address_;
    uint8_t version_;
};

}  // namespace lanyard::test

#endif
