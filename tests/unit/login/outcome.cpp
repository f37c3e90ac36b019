#include "tests/unit/login/outcome.h"

#include <algorithm>

#include <lanyard/radius/frame.h>

namespace lanyard::test {
namespace {

using testing::AllOf;
using testing::Field;
using testing::HasSubstr;
using testing::Not;
using testing::Property;

constexpr int kTrace = 128;

constexpr uint8_t kUserPassword = 2;
constexpr uint8_t kMessageAuthenticator = 80;

std::vector<Attribute> listOf(const Attributes &attributes) {
    return parseAttributes(makePacket(0, 0, Bytes(16), attributes));
}

std::string configurationLine(std::string_view keyword, const ScriptedServer &server) {
    return std::string(keyword) + ' ' + server.host() + ':' + std::to_string(server.port()) + ':' +
           std::to_string(kPatience) + ":0:" + server.secret() + '\n';
}

}  // namespace

std::vector<std::string> Outcome::log() const {
    std::vector<std::string> all;
    std::transform(lines.begin(), lines.end(), std::back_inserter(all), logText);
    return all;
}

std::vector<std::string> Outcome::problemLog() const {
    std::vector<std::string> problems;
    for (const LogLine &line : lines) {
        if (line.level <= kProblemLevelMax) {
            problems.push_back(logText(line));
        }
    }
    return problems;
}

void PrintTo(const Outcome &run, std::ostream *stream) {
    *stream << run.result << ", output " << testing::PrintToString(run.output) << ", log "
            << testing::PrintToString(run.log());
}

testing::Matcher<const Outcome &> Ended(int result, const std::string &output,
                                        const std::vector<std::string> &told) {
    return AllOf(Field("result", &Outcome::result, result),
                 Field("output", &Outcome::output, output), Field("told", &Outcome::told, told));
}

testing::Matcher<const Outcome &> EndedWithLog(int result, const std::string &output,
                                               const std::vector<std::string> &log) {
    return AllOf(Field("result", &Outcome::result, result),
                 Field("output", &Outcome::output, output), Property("log", &Outcome::log, log));
}

Outcome runAs(const std::string &function, const std::function<int()> &call) {
    const LogRecorder log;
    StdoutCapture output;
    Outcome run;
    run.result = call();
    run.output = output.finish();
    run.lines = log.lines();
    run.dumps = log.dumps();
    for (const LogLine &line : run.lines) {
        if (line.function == function || line.function == "radPairShow") {
            run.told.push_back(logText(line));
        }
    }
    return run;
}

void expectSecrecy(const Outcome &run, const std::optional<std::string> &password) {
    const auto expectWithout = [&run](std::string_view text, bool traceMayHaveIt) {
        EXPECT_THAT(run.output, Not(HasSubstr(text)));
        for (const LogLine &line : run.lines) {
            if (line.level != kTrace || !traceMayHaveIt) {
                EXPECT_THAT(line.text, Not(HasSubstr(text)));
            }
        }
        for (const LogDump &dump : run.dumps) {
            EXPECT_THAT(toText(dump.bytes), Not(HasSubstr(text)));
        }
    };
    expectWithout(kSecret, true);
    if (password) {
        expectWithout(*password, false);
    }
}

void expectAccessRequest(const ReceivedRequest &request, std::string_view secret,
                         const Attributes &attributes) {
    ASSERT_GE(request.bytes.size(), kHeaderSize);
    EXPECT_EQ(1, request.code());
    std::vector<Attribute> actual = request.attributes();
    ASSERT_FALSE(actual.empty());
    EXPECT_EQ(kMessageAuthenticator, actual.back().type);
    EXPECT_TRUE(messageAuthenticatorIsValid(request, secret));
    actual.pop_back();
    for (Attribute &attribute : actual) {
        if (attribute.type == kUserPassword && !attribute.value.empty()) {
            attribute.value = revealPaddedPassword(request, secret);
        }
    }
    EXPECT_EQ(listOf(attributes), actual);
}

void expectAccountingRequest(const ReceivedRequest &request, std::string_view secret,
                             const Attributes &attributes) {
    ASSERT_GE(request.bytes.size(), kHeaderSize);
    EXPECT_EQ(4, request.code());
    EXPECT_TRUE(accountingAuthenticatorIsValid(request, secret));
    EXPECT_EQ(listOf(attributes), request.attributes());
}

Bytes padded(std::string_view password) {
    constexpr size_t kBlock = 16;
    Bytes value = fromText(password);
    value.resize((value.size() + kBlock - 1) / kBlock * kBlock);
    return value;
}

Arguments::Arguments(std::vector<std::string> words) : words_(std::move(words)) {
    for (std::string &word : words_) {
        pointers_.push_back(word.data());
    }
    pointers_.push_back(nullptr);
}

StoppedDevice::StoppedDevice() {
    EXPECT_EQ(0U, radMemPartId) << "the library was left started";
}

StoppedDevice::~StoppedDevice() {
    stopLibrary();
}

void StoppedDevice::configure(std::string_view path, const ScriptedServer &authServer) const {
    root_.write(path, configurationLine("authserver", authServer));
}

void StoppedDevice::configure(std::string_view path, const ScriptedServer &authServer,
                              const ScriptedServer &acctServer) const {
    root_.write(path, configurationLine("authserver", authServer) +
                          configurationLine("acctserver", acctServer));
}

void stopLibrary() {
    const PalMemPartId part = radMemPartId;
    EXPECT_EQ(0, radLibExit());
    for (const PartitionRecord &record : partitions()) {
        if (record.id == part) {
            EXPECT_TRUE(record.destroyed);
            EXPECT_EQ(0U, record.blocksAtDestroy) << "blocks of the partition are left over";
        }
    }
    EXPECT_EQ(0U, liveBlocks()) << "blocks are left over";
    forgetPartitions();
}

}  // namespace lanyard::test
