// lanyardctl acct: what the server writes down of a session, and what becomes of records while it is away.
#include <csignal>
#include <filesystem>
#include <map>
#include <sstream>
#include <thread>

#include "tests/interop/lanyardctl.h"
#include "tests/support/scripted_server.h"
#include "tools/lanyardctl/words.h"

namespace lanyard::test::lanyardctl_acct_test {
namespace {

using lanyardctl::split;
using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

class Acct : public Ctl {
  protected:
    void SetUp() override {
        Ctl::SetUp();
        configureWith(server().acctPort());
        before_ = server().accountingRecords().size();
    }

    void configureWith(uint16_t acctPort) const {
        writeConfiguration("authserver " + entry(server().authPort()) + "\nacctserver " +
                           entry(acctPort) + "\n");
    }

    // What the server has written down since the start of the test.
    [[nodiscard]] std::string written() const {
        return server().accountingRecords().substr(before_);
    }
    // The values of an attribute in it, in order.
    [[nodiscard]] std::vector<std::string> writtenOf(const std::string &attribute) const {
        std::vector<std::string> values;
        std::istringstream lines(written());
        for (std::string line; std::getline(lines, line);) {
            if (line.starts_with("\t" + attribute + " = ")) {
                values.push_back(line.substr(attribute.size() + 4));
            }
        }
        return values;
    }

    [[nodiscard]] json waiting() const { return document({"acct", "list"}, 0).at("records"); }

    [[nodiscard]] std::string queue() const {
        return (root().path() / "var/lib/lanyard/accounting.db").string();
    }

  private:
    size_t before_ = 0;
};

TEST_F(Acct, WholeSession_IsWrittenDownByTheServer) {
    const json start = document(
        split("acct start --user alice --class 0x0102fe --nas-port-id eth0/1 "
              "--calling-station-id 02-00-00-00-00-07 --called-station-id 02-00-00-00-00-01 "
              "--framed-ip-address 192.0.2.7 --attribute Service-Type=Framed-User "
              "--attribute Filter-Id=guests --attribute WISPr-Location-Name=lobby",
              " "),
        0);
    EXPECT_EQ(true, start.at("ok"));
    EXPECT_EQ("Start", start.at("status"));
    EXPECT_EQ("recorded", start.at("result"));
    EXPECT_EQ(at(server().acctPort()), start.at("server"));
    EXPECT_LT(0, start.at("milliseconds"));
    EXPECT_THAT(start.at("attributes").dump(),
                HasSubstr(R"({"name":"User-Name","number":1,"value":"alice"})"));
    const std::string session = start.at("session");
    for (const char *attribute :
         {"Acct-Status-Type = Start", "User-Name = \"alice\"", "Class = 0x0102fe",
          "NAS-Port-Id = \"eth0/1\"", "Calling-Station-Id = \"02-00-00-00-00-07\"",
          "Called-Station-Id = \"02-00-00-00-00-01\"", "Framed-IP-Address = 192.0.2.7",
          "Service-Type = Framed-User", "Filter-Id = \"guests\"",
          "Acct-Delay-Time = ", "Event-Timestamp = ", "NAS-IP-Address = 127.0.0.1"}) {
        EXPECT_EQ(1, occurrences(written(), std::string("\t") + attribute)) << attribute;
    }
    document(split("acct interim --user alice --session-time 600 --input-octets 4294967295 "
                   "--output-octets 4294967296 --session-id " +
                       session,
                   " "),
             0);
    document(split("acct stop --user alice --session-time 1200 --input-octets 5000000000 "
                   "--output-octets 18446744073709551615 --input-packets 7 --output-packets 8 "
                   "--terminate-cause Idle-Timeout --session-id " +
                       session,
                   " "),
             0);
    const std::string quoted = '"' + session + '"';
    EXPECT_THAT(writtenOf("Acct-Status-Type"), ElementsAre("Start", "Interim-Update", "Stop"));
    EXPECT_THAT(writtenOf("Acct-Session-Id"), ElementsAre(quoted, quoted, quoted));
    EXPECT_THAT(writtenOf("Acct-Session-Time"), ElementsAre("600", "1200"));
    EXPECT_THAT(writtenOf("Acct-Input-Octets"), ElementsAre("4294967295", "705032704"));
    EXPECT_THAT(writtenOf("Acct-Input-Gigawords"), ElementsAre("1"));
    EXPECT_THAT(writtenOf("Acct-Output-Octets"), ElementsAre("0", "4294967295"));
    EXPECT_THAT(writtenOf("Acct-Output-Gigawords"), ElementsAre("1", "4294967295"));
    EXPECT_THAT(writtenOf("Acct-Input-Packets"), ElementsAre("7"));
    EXPECT_THAT(writtenOf("Acct-Output-Packets"), ElementsAre("8"));
    EXPECT_THAT(writtenOf("Acct-Terminate-Cause"), ElementsAre("Idle-Timeout"));
    EXPECT_EQ(json::array(), waiting());
}

TEST_F(Acct, DeviceStartsAndEnds) {
    EXPECT_EQ("Accounting-On", document({"acct", "on"}, 0).at("status"));
    EXPECT_EQ("Accounting-Off", document({"acct", "off"}, 0).at("status"));
    EXPECT_THAT(writtenOf("Acct-Status-Type"), ElementsAre("Accounting-On", "Accounting-Off"));
}

TEST_F(Acct, PersonReadsSessionServerAndAttributes) {
    const ProgramResult result =
        run({"acct", "stop", "--session-id", "s1", "--user", "alice", "--session-time", "60"});
    EXPECT_EQ(0, result.status);
    EXPECT_THAT(result.out,
                MatchesRegex("Stop, session s1: recorded by 127.0.0.1:[0-9]+ after [0-9.]+ ms\n"
                             "  Acct-Status-Type   Stop \\(2\\)\n"
                             "  Acct-Session-Id    \"s1\"\n"
                             "  Event-Timestamp    [0-9T:-]+Z\n"
                             "  User-Name          \"alice\"\n"
                             "  Acct-Session-Time  60 s\n"));
    EXPECT_EQ("", result.err);
}

TEST_F(Acct, SessionWithoutAnId_GetsOneThatIsPrinted) {
    const ProgramResult start = run({"acct", "start"});
    EXPECT_THAT(start.out, MatchesRegex("Start, session [0-9a-f]{16}: (.|\n)*"));
    EXPECT_EQ("", start.err);
    const ProgramResult stop = run({"acct", "stop"});
    EXPECT_EQ(0, stop.status);
    EXPECT_EQ("lanyardctl: WARNING: no --session-id: this is a session of its own\n", stop.err);
}

TEST_F(Acct, ServerAway_RecordsAreKept_AndWrittenDownOnceItIsBack) {
    server().kill();
    const json start = document({"acct", "start", "--session-id", "s1", "--user", "alice"}, 5);
    EXPECT_EQ(false, start.at("ok"));
    EXPECT_EQ("kept", start.at("result"));
    EXPECT_EQ(queue(), start.at("queue"));
    EXPECT_EQ(1, start.at("waiting"));
    EXPECT_EQ("port closed", start.at("failed_servers").at(0).at("reason"));
    const ProgramResult stop = run({"acct", "stop", "--session-id", "s1", "--user", "alice"});
    EXPECT_EQ(5, stop.status);
    EXPECT_THAT(stop.out, AllOf(StartsWith("Stop, session s1: kept, no server answers\n"),
                                HasSubstr("    Reason: port closed\n"),
                                EndsWith("\n  It waits in " + queue() +
                                         "; 'lanyardctl acct flush' sends it\n")));
    EXPECT_EQ(5, run({"acct", "start", "--session-id", "s2", "--user", "bob"}).status);

    const json list = waiting();
    ASSERT_EQ(3U, list.size());
    EXPECT_EQ("Start", list[0].at("status"));
    EXPECT_EQ("s1", list[0].at("session"));
    EXPECT_EQ("alice", list[0].at("user"));
    EXPECT_EQ("Stop", list[1].at("status"));
    EXPECT_EQ("bob", list[2].at("user"));
    EXPECT_THAT(run({"acct", "list"}).out,
                MatchesRegex("ID +MADE +AGE +STATUS +SESSION +USER\n"
                             "1 +[0-9T:-]+Z +[0-9]+ s +Start +s1 +alice\n"
                             "2 +[0-9T:-]+Z +[0-9]+ s +Stop +s1 +alice\n"
                             "3 +[0-9T:-]+Z +[0-9]+ s +Start +s2 +bob\n"));
    EXPECT_EQ(std::filesystem::perms(0600), std::filesystem::status(queue()).permissions());

    json flushed = document({"acct", "flush"}, 5);
    EXPECT_EQ(0, flushed.at("sent"));
    EXPECT_EQ(3, flushed.at("waiting"));
    EXPECT_EQ("port closed", flushed.at("failed_servers").at(0).at("reason"));
    EXPECT_EQ("", written());

    server().startAgain();
    const ProgramResult last = run({"acct", "flush"});
    EXPECT_EQ(0, last.status);
    EXPECT_EQ("3 records sent, 0 waiting\n", last.out);
    EXPECT_THAT(writtenOf("Acct-Status-Type"), ElementsAre("Start", "Stop", "Start"));
    EXPECT_THAT(writtenOf("Acct-Session-Id"), ElementsAre("\"s1\"", "\"s1\"", "\"s2\""));
    // The server's own time, less the delay, is when it happened.
    const auto delays = writtenOf("Acct-Delay-Time");
    ASSERT_EQ(3U, delays.size());
    EXPECT_GE(std::stoi(delays[0]), 3) << "three waits of a second each came between";
    EXPECT_GE(std::stoi(delays[0]), std::stoi(delays[2]));

    flushed = document({"acct", "flush"}, 0);
    EXPECT_EQ(0, flushed.at("sent"));
    EXPECT_EQ(3, occurrences(written(), "Acct-Session-Id = "));
    EXPECT_EQ("no record waits\n", run({"acct", "list"}).out);
}

TEST_F(Acct, RetryOfOneRecord_SaysHowMuchLaterItIs) {
    ScriptedServer other(server().secret(), {silence(), accountingResponse()});
    writeConfiguration("authserver " + entry(server().authPort()) + "\nacctserver 127.0.0.1:" +
                       std::to_string(other.port()) + ":1:1:" + server().secret() + "\n");
    EXPECT_EQ(0, run({"acct", "start"}).status);
    ASSERT_EQ(2U, other.requestCount());
    const Bytes first = attributeValue(other.request(0), 41);
    const Bytes second = attributeValue(other.request(1), 41);
    EXPECT_LT(first.back(), second.back());
    EXPECT_NE(other.request(0).identifier(), other.request(1).identifier());
}

TEST_F(Acct, FirstServerSilent_SecondOneRecords) {
    const SilentServer silent;
    writeConfiguration("authserver " + entry(server().authPort()) + "\nacctserver " +
                       entry(silent.port()) + ", " + entry(server().acctPort()) + "\n");
    const json answer = document({"acct", "start"}, 0);
    EXPECT_EQ(at(server().acctPort()), answer.at("server"));
    EXPECT_EQ(1U, writtenOf("Acct-Session-Id").size());
}

TEST_F(Acct, WrongSecret_KeepsTheRecord) {
    writeConfiguration("authserver " + entry(server().authPort()) + "\nacctserver " +
                       entry(server().acctPort(), "not-the-secret") + "\n");
    const json answer = document({"acct", "start"}, 5);
    EXPECT_THAT(answer.at("failed_servers").at(0).at("what"), HasSubstr("no reply in 1 try"));
    EXPECT_THAT(answer.at("failed_servers").at(0).at("next"), HasSubstr("has another secret"));
    EXPECT_EQ(1U, waiting().size());
}

TEST_F(Acct, OlderRecordsOfTheSession_GoFirst) {
    const SilentServer silent;
    configureWith(silent.port());
    EXPECT_EQ(5, run({"acct", "start", "--session-id", "s1"}).status);
    EXPECT_EQ(5, run({"acct", "start", "--session-id", "s2"}).status);
    configureWith(server().acctPort());
    EXPECT_EQ(0, run({"acct", "stop", "--session-id", "s1"}).status);
    EXPECT_THAT(writtenOf("Acct-Status-Type"), ElementsAre("Start", "Stop"));
    ASSERT_EQ(1U, waiting().size());
    EXPECT_EQ("s2", waiting()[0].at("session"));
}

// Many at once, while the queue is emptied beside them: each record once, each session in its order.
TEST_F(Acct, ManyAtOnce_AreWrittenDownOnceAndInOrder) {
    constexpr int kSessions = 6;
    std::vector<std::thread> gateways;
    gateways.reserve(kSessions);
    for (int i = 0; i < kSessions; ++i) {
        gateways.emplace_back([this, i] {
            for (const char *status : {"start", "interim", "stop"}) {
                EXPECT_EQ(0, run({"acct", status, "--session-id", "s" + std::to_string(i)}).status);
            }
        });
    }
    for (int i = 0; i < kSessions; ++i) {
        EXPECT_EQ(0, run({"acct", "flush"}).status);
    }
    for (std::thread &gateway : gateways) {
        gateway.join();
    }
    const auto sessions = writtenOf("Acct-Session-Id");
    const auto statuses = writtenOf("Acct-Status-Type");
    ASSERT_EQ(3U * kSessions, sessions.size());
    std::map<std::string, std::string> orders;
    for (size_t i = 0; i < sessions.size(); ++i) {
        orders[sessions[i]] += statuses[i] + " ";
    }
    for (const auto &[session, order] : orders) {
        EXPECT_EQ("Start Interim-Update Stop ", order) << session;
    }
}

TEST_F(Acct, ServiceSendsWhatWaits_AndSaysWhatChanges) {
    server().kill();
    EXPECT_EQ(5, run({"acct", "start", "--session-id", "s1"}).status);
    const RunningProgram service({LANYARDCTL, "acct", "flush", "--every", "1"},
                                 {"PAL_ROOT=" + root().path().string()}, root().path() / "log");
    ASSERT_TRUE(service.waitForOutput("accounting: PROBLEM: records wait; 127.0.0.1:"));
    server().startAgain();
    ASSERT_TRUE(service.waitForOutput("accounting: 1 record sent, 0 waiting\n"));
    ASSERT_TRUE(service.waitForOutput("accounting: in order again\n"));
    EXPECT_EQ(1, occurrences(service.output(), "PROBLEM")) << service.output();
    EXPECT_THAT(writtenOf("Acct-Session-Id"), ElementsAre("\"s1\""));
}

TEST_F(Acct, ServiceReadsTheConfigurationAnew) {
    writeConfiguration("authserver " + entry(server().authPort()) + "\n");
    const SilentServer silent;
    root().write("other.conf", "authserver " + entry(server().authPort()) + "\nacctserver " +
                                   entry(silent.port()) + "\n");
    EXPECT_EQ(5, run({"acct", "start", "-f", "/other.conf"}).status);
    RunningProgram service({LANYARDCTL, "acct", "flush", "--every", "3600"},
                           {"PAL_ROOT=" + root().path().string()}, root().path() / "log");
    ASSERT_TRUE(service.waitForOutput("names no accounting server"));
    configureWith(server().acctPort());
    service.signal(SIGHUP);
    EXPECT_TRUE(service.waitForOutput("accounting: 1 record sent, 0 waiting\n"))
        << service.output();
    service.signal(SIGTERM);
    EXPECT_EQ(0, service.wait());
}

TEST_F(Acct, WrongInput_IsRefused_AndNothingIsStored) {
    const auto expect = [this](int status, const std::vector<std::string> &arguments,
                               const std::string &text) {
        const ProgramResult result = run(arguments);
        EXPECT_EQ(status, result.status) << text;
        EXPECT_EQ("", result.out);
        EXPECT_THAT(result.err, AllOf(StartsWith("lanyardctl: "), HasSubstr(text)));
    };
    expect(2, {"acct", "stop", "--terminate-cause", "Boredom"},
           "--terminate-cause: 'Boredom' is no whole number");
    expect(2, {"acct", "stop", "--input-octets", "-1"}, "--input-octets: '-1' is no whole number");
    expect(2, {"acct", "start", "--session-time", "5"}, "--session-time");
    expect(2, {"acct", "start", "--user", "a", "--user", "b"}, "--user");
    expect(2, {"acct", "start", "--session-id", std::string(254, 's')}, "takes 1 to 253 bytes");
    expect(3, {"acct", "start", "--attribute", "Door=1"}, "no attribute 'Door'");
    expect(2, {"acct", "flush", "--every", "0"}, "--every");
    expect(2, {"acct", "flush", "--syslog"}, "--every");
    expect(2, {"acct"}, "subcommand");
    expect(1, {"acct", "start", "--queue", "/none/queue.db"},
           "cannot make the database /none/queue.db: No such file or directory");
    expect(1, {"acct", "list", "--queue", file("text", std::string(5000, 'x'))},
           "file is not a database");
    expect(1, {"acct", "start", "-f", "/none.conf"}, "/none.conf");
    EXPECT_EQ(json::array(), waiting());
    EXPECT_EQ("", written());
    writeConfiguration("authserver " + entry(server().authPort()) + "\n");
    expect(1, {"acct", "start"}, "names no accounting server");
    EXPECT_EQ(json::array(), waiting());
}

}  // namespace
}  // namespace lanyard::test::lanyardctl_acct_test
