// The lines that the program prints.
#include "tools/pnac_wired/report.h"

#include <nlohmann/json.hpp>

#include "tests/unit/tools/pnac_wired/world.h"

namespace lanyard::test::report_test {
namespace {

using nlohmann::json;
using pnac::Reporter;
using namespace std::chrono_literals;

const Bytes kAlice = fromText("alice");
const Bytes kRecvKey(32, 0xa1);
const Bytes kSendKey(16, 0xb2);

pnac::Event acceptance() {
    return {.kind = EventKind::kAuthorized,
            .reason = Reason::kAccepted,
            .address = macOf(1),
            .identity = kAlice,
            .duration = 12345us,
            .keyInfo = {.session = pnac::SessionTimeout{pnac::SessionRule::kReauthenticate, 3600},
                        .recvKey = kRecvKey,
                        .sendKey = kSendKey}};
}

pnac::Event eventOf(ByteView identity) {
    return {.kind = EventKind::kFailed,
            .reason = Reason::kRelaySilent,
            .address = macOf(2),
            .identity = identity,
            .duration = 30s};
}

json parsed(const std::string &line) {
    EXPECT_EQ(line.size() - 1, line.find('\n')) << "one line with its end";
    return json::parse(line);
}

TEST(TextReport, TellsOfALogin) {
    const Reporter reporter("eth0", Reporter::Format::kText, false);
    EXPECT_EQ(
        "02:10:00:00:00:01 authorized identity=\"alice\" seconds=0.0123 recv-key=32 octets "
        "send-key=16 octets session-timeout=3600 then=reauthenticate\n",
        reporter.event(acceptance()));
    pnac::Event again = acceptance();
    again.reauthentication = true;
    again.keyInfo = {};
    EXPECT_EQ("02:10:00:00:00:01 authorized identity=\"alice\" seconds=0.0123 again\n",
              reporter.event(again));
}

TEST(TextReport, NamesTheVlan) {
    const Bytes vlan = fromHex("67 75 22 0a");
    pnac::Event event = acceptance();
    event.keyInfo = {.vlan = vlan};
    EXPECT_EQ(
        "02:10:00:00:00:01 authorized identity=\"alice\" seconds=0.0123 vlan=\"gu\\x22\\x0a\"\n",
        Reporter("eth0", Reporter::Format::kText, false).event(event));
}

TEST(TextReport, ShowsKeysOnRequestAlone) {
    const Reporter reporter("eth0", Reporter::Format::kText, true);
    const std::string line = reporter.event(acceptance());
    EXPECT_NE(std::string::npos, line.find(" recv-key=" + toHex(kRecvKey) + ' '));
    EXPECT_NE(std::string::npos, line.find(" send-key=" + toHex(kSendKey) + ' '));
    EXPECT_EQ(std::string::npos,
              Reporter("eth0", Reporter::Format::kText, false).event(acceptance()).find("a1a1"));
}

TEST(TextReport, TellsWhyALoginFailed) {
    EXPECT_EQ(
        "02:10:00:00:00:02 failed identity=\"alice\" seconds=30.0000 "
        "reason=\"no answer from the relay\"\n",
        Reporter("eth0", Reporter::Format::kText, false).event(eventOf(kAlice)));
}

TEST(TextReport, StaysOnItsLineWhateverTheIdentity) {
    const Bytes identity = fromHex("61 0a 22 5c 1b 7f 00 c3a9");
    const std::string line =
        Reporter("eth0", Reporter::Format::kText, false).event(eventOf(identity));
    EXPECT_NE(std::string::npos,
              line.find("identity=\"a\\x0a\\x22\\x5c\\x1b\\x7f\\x00\\xc3\\xa9\" seconds"))
        << line;
    EXPECT_EQ(line.size() - 1, line.find('\n'));
}

TEST(JsonReport, TellsOfALogin) {
    const json object =
        parsed(Reporter("eth0", Reporter::Format::kJson, false).event(acceptance()));
    EXPECT_EQ(json({{"event", "authorized"},
                    {"interface", "eth0"},
                    {"address", "02:10:00:00:00:01"},
                    {"identity", "alice"},
                    {"identity_hex", "616c696365"},
                    {"reason", "accepted"},
                    {"seconds", 0.012345},
                    {"reauthentication", false},
                    {"recv_key_length", 32},
                    {"send_key_length", 16},
                    {"session_timeout", 3600},
                    {"then", "reauthenticate"}}),
              object);
}

TEST(JsonReport, NamesTheVlan) {
    const Bytes vlan = fromText("120");
    pnac::Event event = acceptance();
    event.keyInfo.vlan = vlan;
    EXPECT_EQ("120", parsed(Reporter("eth0", Reporter::Format::kJson, false).event(event))["vlan"]);
}

TEST(JsonReport, ShowsKeysOnRequestAlone) {
    const json object = parsed(Reporter("eth0", Reporter::Format::kJson, true).event(acceptance()));
    EXPECT_EQ(toHex(kRecvKey), object["recv_key"]);
    EXPECT_EQ(toHex(kSendKey), object["send_key"]);
}

TEST(JsonReport, HoldsTheIdentityWhateverItIs) {
    const Reporter reporter("eth0", Reporter::Format::kJson, false);
    const auto identityOf = [&](const char *hex) {
        const Bytes identity = fromHex(hex);
        const json object = parsed(reporter.event(eventOf(identity)));
        EXPECT_EQ(toHex(identity), object["identity_hex"]);
        return object["identity"].get<std::string>();
    };
    EXPECT_EQ("a\"b\\c\n\x1b{}", identityOf("61 22 62 5c 63 0a 1b 7b7d"));
    EXPECT_EQ(std::string("a\0b", 3), identityOf("61 00 62"));
    EXPECT_EQ("\xc3\xa9", identityOf("c3a9"));
    EXPECT_EQ(
        "a\xef\xbf\xbd"
        "b",
        identityOf("61 ff 62"));
    EXPECT_EQ("", identityOf(""));
}

TEST(JsonReport, IsGoodForEveryOctet) {
    const Reporter reporter("eth0", Reporter::Format::kJson, false);
    for (unsigned first = 0; first < 256; ++first) {
        for (unsigned second = 0; second < 256; second += 5) {
            const Bytes identity = {static_cast<uint8_t>(first), static_cast<uint8_t>(second)};
            ASSERT_EQ(toHex(identity), parsed(reporter.event(eventOf(identity)))["identity_hex"]);
        }
    }
}

TEST(Report, NamesEveryReason) {
    for (const auto &[reason, name] : {std::pair{Reason::kAccepted, "accepted"},
                                       {Reason::kRejected, "rejected"},
                                       {Reason::kSupplicantSilent, "no answer from the supplicant"},
                                       {Reason::kRelaySilent, "no answer from the relay"},
                                       {Reason::kRelayNotRunning, "relay not running"},
                                       {Reason::kNoServer, "no server answered"},
                                       {Reason::kNotSent, "request not sent"},
                                       {Reason::kExpired, "conversation expired"},
                                       {Reason::kIdentityTooLong, "identity too long"},
                                       {Reason::kLogoff, "logoff"},
                                       {Reason::kSessionTimeout, "session timeout"},
                                       {Reason::kNotReauthenticated, "not authenticated again"},
                                       {Reason::kLinkDown, "link down"},
                                       {Reason::kShutdown, "shutdown"}}) {
        EXPECT_EQ(name, pnac::nameOf(reason));
    }
    EXPECT_EQ("unauthorized", pnac::nameOf(EventKind::kUnauthorized));
}

TEST(Report, SaysThatItIsReady) {
    EXPECT_EQ("ready on eth0, 02:10:00:00:00:01\n",
              Reporter("eth0", Reporter::Format::kText, false).ready(macOf(1)));
    EXPECT_EQ(json({{"event", "ready"}, {"interface", "eth0"}, {"address", "02:10:00:00:00:01"}}),
              parsed(Reporter("eth0", Reporter::Format::kJson, false).ready(macOf(1))));
}

TEST(Report, ShowsTheCounters) {
    const pnac::Counters counters{.framesReceived = 7, .failed = 18446744073709551615U};
    const pnac::ProgramCounters more{.supplicants = 3, .framesNotSent = 5, .linesLost = 9};
    const json object =
        parsed(Reporter("eth0", Reporter::Format::kJson, false).counters(counters, more));
    EXPECT_EQ("counters", object["event"]);
    EXPECT_EQ(7, object["frames_received"]);
    EXPECT_EQ(5, object["frames_not_sent"]);
    EXPECT_EQ(9, object["lines_lost"]);
    EXPECT_EQ(3, object["supplicants"]);
    EXPECT_EQ(18446744073709551615U, object["failed"].get<uint64_t>());
    EXPECT_EQ(24U, object.size());

    const std::string line =
        Reporter("eth0", Reporter::Format::kText, false).counters(counters, more);
    EXPECT_EQ(
        0U, line.find("counters supplicants=3 frames_not_sent=5 lines_lost=9 frames_received=7 "));
    EXPECT_EQ('\n', line.back());
}

}  // namespace
}  // namespace lanyard::test::report_test
