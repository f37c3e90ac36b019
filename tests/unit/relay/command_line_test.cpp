// The relay as a program: its options, and one whole life of the service.
#include <algorithm>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/mgmt.h>

#include "tests/support/test.h"
#include "tests/unit/device/database_file.h"
#include "tests/unit/relay/fixture.h"

namespace lanyard::test::command_line_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char *kDictionary = "/nexa2.0/etc/radius.dict";

constexpr uint32_t kCookie = 0x1001;

// The library is not started: the program does that.
class EapMain : public testing::Test {
  protected:
    EapMain() {
        device.root().write(kDictionary,
                            "ATTRIBUTE User-Name 1 string\nATTRIBUTE NAS-IP-Address 4 ipaddr\n"
                            "ATTRIBUTE Service-Type 6 integer\nATTRIBUTE Framed-MTU 12 integer\n"
                            "ATTRIBUTE State 24 string\nATTRIBUTE EAP-Message 79 string\n"
                            "ATTRIBUTE Message-Authenticator 80 string\n");
        database.nameDictionary(kDictionary);
    }
    ~EapMain() override {
        EXPECT_EQ(0, radiusMgmtDeInit());
        pRadEapXbusCtx = nullptr;
    }

    // Runs the program and returns its result; what it wrote to standard output is `output`.
    int run(std::initializer_list<std::string> words) {
        Arguments arguments(words);
        StdoutCapture capture;
        const int result = radEapMain(arguments.count(), arguments.vector());
        output = capture.finish();
        return result;
    }

    [[nodiscard]] bool served() const {
        return std::find(bus.calls.begin(), bus.calls.end(), "xbusUnRegister") != bus.calls.end();
    }
    [[nodiscard]] std::vector<std::string> told() const { return ofRelay(log.log()); }

    const StoppedDevice device;
    const DatabaseFile database{device.root().path("/device.db")};
    const std::string path{database.path()};
    TestBus bus;
    LogRecorder log;
    std::string output;
};

TEST_F(EapMain, ServesWithoutOptions) {
    bus.listens = {[] {
        EXPECT_NE(0U, radMemPartId) << "the library is started";
        EXPECT_EQ(nullptr, radConfGet(RAD_CONF_TIMEOUT)) << "nothing is configured";
        return 0;
    }};
    EXPECT_EQ(0, run({"radeap"}));
    EXPECT_TRUE(served());
    EXPECT_EQ("", output);
    EXPECT_THAT(told(), IsEmpty());
}

TEST_F(EapMain, TakesVerbose) {
    EXPECT_EQ(0, run({"radeap", "-v", "-v"}));
    EXPECT_TRUE(served());
    EXPECT_THAT(told(), IsEmpty());
}

TEST_F(EapMain, OpensTheDatabase) {
    bus.listens = {[] {
        const auto *timeout = static_cast<const int32_t *>(radConfGet(RAD_CONF_TIMEOUT));
        EXPECT_TRUE(timeout != nullptr && *timeout == 10);
        return 0;
    }};
    EXPECT_EQ(0, run({"radeap", "-d", path}));
    EXPECT_TRUE(served());
    EXPECT_THAT(told(), IsEmpty());
}

TEST_F(EapMain, GoesOnWithoutTheDatabase) {
    const std::string missing = device.root().path("/none/device.db").string();
    EXPECT_EQ(0, run({"radeap", "-d", missing, "-v"}));
    EXPECT_TRUE(served());
    EXPECT_THAT(told(),
                ElementsAre("device error radiusMgmtInit> unable to open the DB file " + missing,
                            "device error radEapMain> could not initialize MGMT framework "));
}

TEST_F(EapMain, RefusesAConfigurationFileWithoutADatabaseBefore) {
    const auto expectRefused = [this](std::initializer_list<std::string> words) {
        log.clear();
        EXPECT_EQ(-1, run(words));
        EXPECT_EQ("", output);
        EXPECT_THAT(told(),
                    ElementsAre("device error radEapMain> ERROR: option value not specified "));
        EXPECT_EQ(0U, radMemPartId) << "the library is not started";
    };
    expectRefused({"radeap", "-f"});
    expectRefused({"radeap", "-v", "-f"});
    expectRefused({"radeap", "-f", "/var/radius.conf"});
    expectRefused({"radeap", "-f", "-d", path});
    EXPECT_THAT(bus.calls, IsEmpty());
}

// What follows -f is no value of it, and the value that it takes from -d leads nowhere.
TEST_F(EapMain, TakesAConfigurationFileAfterADatabaseAndReadsNone) {
    device.root().write("/var/radius.conf", "authserver 127.0.0.1:1812:1:0:secret\n");
    bus.listens = {[] {
        EXPECT_EQ(0, radConfGetNumServers(RAD_SERVER_AUTH));
        return 0;
    }};
    EXPECT_EQ(0, run({"radeap", "-d", path, "-f", "/var/radius.conf"}));
    EXPECT_TRUE(served());
    EXPECT_THAT(told(), IsEmpty());
}

TEST_F(EapMain, TakesAConfigurationFileAlsoAfterADatabaseThatFails) {
    EXPECT_EQ(0, run({"radeap", "-d", device.root().path("/none/device.db").string(), "-vf"}));
    EXPECT_TRUE(served());
}

// The path is copied up to a limit; a longer one is as good.
TEST_F(EapMain, TakesAConfigurationFileOfAnyLength) {
    EXPECT_EQ(0, run({"radeap", "-d", std::string(5000, 'x'), "-f"}));
    EXPECT_TRUE(served());
}

TEST_F(EapMain, RefusesADatabaseOptionWithoutItsValue) {
    EXPECT_EQ(-1, run({"radeap", "-v", "-d"}));
    EXPECT_EQ("", output);
    EXPECT_THAT(told(), ElementsAre("device error radEapMain> ERROR: option value not specified "));
    EXPECT_THAT(bus.calls, IsEmpty());
    EXPECT_EQ(0U, radMemPartId) << "the library is not started";
}

TEST_F(EapMain, ShowsItsUsageForAnUnknownOption) {
    for (const char *option : {"-x", "-?", "-h", "--help"}) {
        EXPECT_EQ(-1, run({"/sbin/radeap", option}));
        EXPECT_EQ("Usage: /sbin/radeap [-v] [ -f confFile]\n", output);
    }
    EXPECT_EQ(-1, run({"radeap", "-v", "-x", "-f"})) << "the first one that is refused";
    EXPECT_EQ("Usage: radeap [-v] [ -f confFile]\n", output);
    EXPECT_THAT(told(), IsEmpty());
    EXPECT_THAT(bus.calls, IsEmpty());
    EXPECT_EQ(0U, radMemPartId);
}

TEST_F(EapMain, NeedsTheLibrary) {
#ifdef LANYARD_CALLS_ITSELF_DIRECTLY
    GTEST_SKIP() << "link-time optimisation: the library's calls of itself cannot be replaced";
#endif
    bus.startResult = -1;
    EXPECT_EQ(-1, run({"radeap"}));
    EXPECT_THAT(told(), ElementsAre("device error radEapMain> Unable to initialize radius "));
    EXPECT_THAT(bus.calls, IsEmpty());
}

TEST_F(EapMain, NeedsTheBus) {
    bus.initResult = -1;
    EXPECT_EQ(-1, run({"radeap"}));
    EXPECT_THAT(told(), ElementsAre("device error radEapXbusInit> failed to initialize XBUS "));
}

TEST_F(EapMain, LivesByItsDatabaseAndItsBus) {
    ScriptedServer server(kSecret);
    const Bytes request = eapRequest(8, 22);
    server.then(challenge(eapMessage(request, Attributes().addText(24, "state"))));
    server.then(accept(eapMessage("03080004"_hex)));
    const int row =
        database.addServer("'" + server.host() + "', '" + std::to_string(server.port()) + "', '" +
                           kSecret + "', '10', '0'");
    const auto notify = [this, row](int opCode) {
        RadDbUpdateInfo info{.tableName = "radiusClient",
                             .rowKey = 4,
                             .rowId = row,
                             .opCode = opCode,
                             .reserved = 0};
        return bus.handler(nullptr, nullptr, 4, &info, sizeof(info), nullptr, nullptr);
    };
    bus.listens = {[&] {
                       EXPECT_EQ(0, notify(RAD_DB_INSERT));
                       return 1;
                   },
                   [] { return fromPnac(kCookie, identityResponse(7, "alice")); },
                   [] { return fromPnac(kCookie, eapResponse(8, 22)); },
                   [&] {
                       EXPECT_EQ(0, notify(RAD_DB_DELETE));
                       return 1;
                   },
                   [] { return fromPnac(kCookie, identityResponse(9, "alice")); },
                   [] { return 0; }};
    EXPECT_EQ(0, run({"radeap", "-d", path}));
    EXPECT_EQ(2U, server.requestCount());
    EXPECT_BYTES_EQ(fromText("state"), attributeValue(server.request(1), 24));
    ASSERT_EQ(3U, bus.sent.size());
    EXPECT_BYTES_EQ(request, bus.sent[0].payload());
    EXPECT_BYTES_EQ("03080004"_hex, bus.sent[1].payload());
    EXPECT_BYTES_EQ("04090004"_hex, bus.sent[2].payload()) << "there is no server any more";
}

}  // namespace
}  // namespace lanyard::test::command_line_test
