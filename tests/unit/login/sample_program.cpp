#include "tests/unit/login/sample_program.h"

#include <algorithm>
#include <array>

#include <lanyard/radius/frame.h>
#include <lanyard/radius/methods.h>
#include <palcore.h>

namespace lanyard::test {
namespace {

template <int (*main)(int argc, char *argv[])>
int plainMain(int argc, char *argv[], uint32_t * /*idle*/, uint32_t * /*session*/) {
    return main(argc, argv);
}

int mainEverywhere(int argc, char *argv[], uint32_t * /*idle*/, uint32_t * /*session*/) {
    std::array<int32_t, 8> results{};
    return radAuthSampleMainCheckAllServer(argc, argv, results.data());
}

int mainForLimits(int argc, char *argv[], uint32_t *idle, uint32_t *session) {
    return radChapSampleMainCaptivePortal(argc, argv, reinterpret_cast<int *>(idle),
                                          reinterpret_cast<int *>(session));
}

}  // namespace

Generator generator;

// clang-format off
const std::vector<Program> &programs() {
    static const std::vector<Program> rows{
        {"radAuthSampleMain", plainMain<radAuthSampleMain>,
         0, "", "error", "error", "error radAuth> "},
        {"radAuthSampleMainCheckAllServer", mainEverywhere,
         1, "trace", "trace", "trace", "trace radAuthCheckAllServer> "},
        {"radAuthSampleMainCaptivePortal", radAuthSampleMainCaptivePortal,
         2, "", "error", "error", "error radAuthAndGetAttributes> "},
        {"radChapSampleMain", plainMain<radChapSampleMain>,
         3, "", "error", "error", "error radChapSampleMain> "},
        {"radChapSampleMainCaptivePortal", mainForLimits,
         4, "trace", "error", "trace", "trace radChapSampleMainCaptivePortal> "},
        {"radMschapSampleMain", plainMain<radMschapSampleMain>,
         5, "", "error", "error", "", true},
        {"radMschapSampleMainCaptivePortal", radMschapSampleMainCaptivePortal,
         6, "", "error", "error", "", true},
        {"radMschapv2SampleMain", plainMain<radMschapv2SampleMain>,
         7, "", "error", "error", "", true},
        {"radMschapv2SampleMainCaptivePortal", radMschapv2SampleMainCaptivePortal,
         8, "", "error", "error", "", true},
        {"radAcctSampleMain", plainMain<radAcctSampleMain>,
         kAccounting, "", "error", "error", ""}};
    return rows;
}
// clang-format on

std::vector<Program> programsThat(bool (*predicate)(const Program &program)) {
    std::vector<Program> rows;
    std::copy_if(programs().begin(), programs().end(), std::back_inserter(rows), predicate);
    return rows;
}

void PrintTo(const Program &program, std::ostream *stream) {
    *stream << program.name;
}

SampleProgram::SampleProgram() {
    generator = {};
    server_.otherwise(program().isAccounting() ? accountingResponse() : accept());
    configure(kDefaultFile);
}

SampleProgram::~SampleProgram() {
    EXPECT_EQ(0U, otherServer_.requestCount());
    EXPECT_EQ(0, palRandLibInit(nullptr, nullptr));
}

void SampleProgram::configure(std::string_view path) const {
    device_.configure(path, isAccounting() ? otherServer_ : server_,
                      isAccounting() ? server_ : otherServer_);
}

Words SampleProgram::inputs(Words options) {
    const Words inputs = isAccounting() ? Words{"-s", "7"} : Words{"nemo", kPassword};
    options.insert(options.end(), inputs.begin(), inputs.end());
    return options;
}

void SampleProgram::expectSent(size_t index) {
    if (isAccounting()) {
        expectRecord(index, 7);
    } else {
        expectLoginSent(index, "nemo", kPassword);
    }
}

void SampleProgram::expectRecord(size_t index, uint32_t status) {
    expectAccountingRequest(server_.request(index), kSecret,
                            Attributes().addInteger(40, status).addAddress(4, kDeviceAddress));
}

void SampleProgram::expectLoginSent(size_t index, std::string_view userName,
                                    std::string_view password) {
    const Family &family = program().method().family();
    expectLogin(family, server_.request(index), userName, password);
    if (family.runsProgram) {
        EXPECT_EQ(password, program_.call(index).password);
        EXPECT_EQ("/tmp/mschap_" + std::string(userName), program_.call(index).file);
    }
}

void SampleProgram::expectUsage(const Outcome &refused, const std::string &calledAs) const {
    const std::string usage = "Usage: " + calledAs + " [-v] [ -f confFile] " +
                              (isAccounting() ? "[-s status]" : "<username> <password>");
    const std::string level = program().usageLevel;
    EXPECT_THAT(refused, level.empty() ? EndedWithLog(-1, usage + '\n', {})
                                       : EndedWithLog(-1, "", {program().line(level, usage)}));
    expectNothingDone();
}

void SampleProgram::expectNothingDone() const {
    EXPECT_EQ(0U, radMemPartId);
    EXPECT_EQ(0U, server_.requestCount());
    EXPECT_EQ(0U, program_.callCount());
}

Outcome SampleProgram::run(const Words &words, Limits *limits) {
    Words all{"sample"};
    all.insert(all.end(), words.begin(), words.end());
    return runTelling(program().name, Arguments(all), limits);
}

Outcome SampleProgram::runTelling(const std::string &function, Arguments arguments,
                                  Limits *limits) {
    Limits unused;
    Limits &places = limits != nullptr ? *limits : unused;
    return runAs(function, [&] {
        return program().main(arguments.count(), arguments.vector(), &places.idle, &places.session);
    });
}

}  // namespace lanyard::test

int palCiphPRNGInit(void *context, uint8_t *out, uint32_t length) {
    using lanyard::test::generator;
    generator.lengths.push_back(length);
    generator.hadContext = generator.hadContext || context != nullptr;
    if (generator.failingCall == generator.lengths.size()) {
        return -1;
    }
    for (uint32_t i = 0; i < length; ++i) {
        out[i] = static_cast<uint8_t>(generator.lengths.size() * 0x10 + i);
    }
    return 0;
}
