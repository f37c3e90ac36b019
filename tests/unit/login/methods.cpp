#include "tests/unit/login/methods.h"

#include <algorithm>
#include <array>
#include <gmock/gmock.h>

#include <lanyard/radius/methods.h>

namespace lanyard::test {
namespace {

const Bytes kChapChallenge = "000102030405060708090a0b0c0d0e0f"_hex;
constexpr uint8_t kChapIdentifier = 0x2a;

Bytes chapResponse(uint8_t identifier, std::string_view password, ByteView challenge) {
    const Bytes first = {identifier};
    return concatenate({first, md5({first, fromText(password), challenge})});
}

// The Peer-Challenge of a request, which is random.
Bytes peerChallengeOf(const ReceivedRequest &request) {
    Bytes response = vendorValue(request, kMicrosoft, 25);
    EXPECT_EQ(50U, response.size());
    response.resize(50);
    return {response.begin() + 2, response.begin() + 18};
}

Attributes papAttributes(const ReceivedRequest & /*sent*/, std::string_view userName,
                         std::string_view password) {
    return Attributes().addText(1, userName).add(2, padded(password)).addInteger(6, 8);
}

Attributes chapAttributes(const ReceivedRequest &sent, std::string_view userName,
                          std::string_view password) {
    const Bytes challenge = attributeValue(sent, 60);
    const Bytes response = attributeValue(sent, 3);
    EXPECT_EQ(16U, challenge.size());
    EXPECT_FALSE(response.empty());
    const uint8_t identifier = response.empty() ? uint8_t{0} : response[0];
    return Attributes()
        .addText(1, userName)
        .addInteger(6, 8)
        .add(3, chapResponse(identifier, password, challenge))
        .add(60, challenge);
}

Attributes mschapAttributes(const ReceivedRequest & /*sent*/, std::string_view userName,
                            std::string_view /*password*/) {
    return Attributes()
        .addText(1, userName)
        .addVendor(kMicrosoft, 11, Bytes(8, 1))
        .addVendor(kMicrosoft, 1, concatenate({"b901"_hex, Bytes(24), ntResponse()}))
        .addInteger(6, 8);
}

Attributes mschapv2Attributes(const ReceivedRequest &sent, std::string_view userName,
                              std::string_view /*password*/) {
    return Attributes()
        .addText(1, userName)
        .addVendor(kMicrosoft, 11, Bytes(16, 1))
        .addVendor(kMicrosoft, 25,
                   concatenate({"b900"_hex, peerChallengeOf(sent), Bytes(8), ntResponse()}))
        .addInteger(6, 8);
}

// --- The functions with one signature -------------------------------------------------------------

using PlainLogin = int (*)(const char *userName, const char *password);

template <PlainLogin login>
int plain(const char *userName, const char *password, uint32_t * /*idle*/, uint32_t * /*session*/) {
    return login(userName, password);
}

int everywhere(const char *userName, const char *password, uint32_t * /*idle*/,
               uint32_t * /*session*/) {
    std::array<int32_t, 8> results{};
    return radAuthCheckAllServer(userName, password, results.data());
}

int plainChap(const char *userName, const char *password, uint32_t * /*idle*/,
              uint32_t * /*session*/) {
    const Bytes response = chapResponse(kChapIdentifier, password, kChapChallenge);
    return radChapAuth(userName, response.data(), static_cast<int>(response.size()),
                       kChapChallenge.data(), static_cast<int>(kChapChallenge.size()));
}

int chapForLimits(const char *userName, const char *password, uint32_t *idle, uint32_t *session) {
    const Bytes response = chapResponse(kChapIdentifier, password, kChapChallenge);
    return radChapAuthAndGetAttributes(
        userName, response.data(), static_cast<int>(response.size()), kChapChallenge.data(),
        static_cast<int>(kChapChallenge.size()), reinterpret_cast<int *>(idle),
        reinterpret_cast<int *>(session));
}

std::vector<Method> chosen(bool (*predicate)(const Method &)) {
    std::vector<Method> rows;
    std::copy_if(methods().begin(), methods().end(), std::back_inserter(rows), predicate);
    return rows;
}

// What is printed, and what the function itself and radPairShow() log.
struct Said {
    std::string output;
    std::vector<std::string> told;

    bool operator==(const Said &) const = default;
};

std::string lineOf(const Method &method, int level, const std::string &text) {
    return std::to_string(level) + " " + method.name + ": " + text;
}

Said outcomeOf(const Method &method, bool accepted, const std::string &userName) {
    const std::string line = "\"" + userName + "\" RADIUS Authentication ";
    if (!accepted) {
        return {"", {lineOf(method, method.failureLevel, line + "failure\n")}};
    }
    return method.printsSuccess ? Said{line + "OK\n", {}}
                                : Said{"", {lineOf(method, kTrace, line + "OK\n")}};
}

void expectExactly(const Said &said, const Outcome &run) {
    EXPECT_EQ(said.output, run.output);
    EXPECT_EQ(said.told, texts(run.told));
}

}  // namespace

const Family &pap() {
    static const Family family{{1, 2, 6, 4, 80}, 3, false, papAttributes};
    return family;
}

const Family &chap() {
    static const Family family{{1, 6, 3, 60, 4, 80}, 4, false, chapAttributes};
    return family;
}

const Family &mschap() {
    static const Family family{{1, 26, 26, 6, 4, 80}, 4, true, mschapAttributes};
    return family;
}

const Family &mschapv2() {
    static const Family family{{1, 26, 26, 6, 4, 80}, 4, true, mschapv2Attributes};
    return family;
}

void expectLogin(const Family &family, const ReceivedRequest &sent, std::string_view userName,
                 std::string_view password, std::string_view nasIdentifier) {
    Attributes expected = family.attributes(sent, userName, password);
    if (nasIdentifier.empty()) {
        EXPECT_EQ(family.types, attributeTypes(sent));
        expected.addAddress(4, kDeviceAddress);
    } else {
        expected.addText(32, nasIdentifier);
    }
    expectAccessRequest(sent, kSecret, expected);
}

const std::vector<Method> &methods() {
    static const std::string kBadPassword = "Invalid username or password\n";
    static const std::string kBadResponse = "Invalid username, challenge or response\n";
    static const std::string kErrorPassword = "8: " + kBadPassword;
    static const std::string kTracePassword = "128: " + kBadPassword;
    static const std::string kErrorResponse = "8: " + kBadResponse;
    static const std::string kTraceResponse = "128: " + kBadResponse;
    // clang-format off
    static const std::vector<Method> rows{
        {"radAuth", plain<radAuth>, pap, kErrorPassword.c_str(),
         true, kError, Shown::kAlways, Heading::kPrinted},
        {"radAuthCheckAllServer", everywhere, pap, kTracePassword.c_str(),
         false, kTrace, Shown::kAlways, Heading::kTraced, false, true},
        {"radAuthAndGetAttributes", radAuthAndGetAttributes, pap, kErrorPassword.c_str(),
         false, kTrace, Shown::kAlways, Heading::kPrinted, true},
        {"radChapAuth", plainChap, chap, kErrorResponse.c_str(),
         true, kError, Shown::kAlways, Heading::kPrinted},
        {"radChapAuthAndGetAttributes", chapForLimits, chap, kTraceResponse.c_str(),
         false, kTrace, Shown::kAlways, Heading::kTraced, true},
        {"radMschap", plain<radMschap>, mschap, "",
         true, kError, Shown::kNever, Heading::kNone},
        {"radMschapAndGetAttributes", radMschapAndGetAttributes, mschap, "",
         false, kError, Shown::kAccepted, Heading::kNone, true},
        {"radMschapv2", plain<radMschapv2>, mschapv2, "",
         true, kError, Shown::kNever, Heading::kNone},
        {"radMschapv2AndGetAttributes", radMschapv2AndGetAttributes, mschapv2, "",
         false, kError, Shown::kAccepted, Heading::kNone, true}};
    // clang-format on
    return rows;
}

std::vector<Method> methodsWithLimits() {
    return chosen([](const Method &method) { return method.handsOutLimits; });
}

std::vector<Method> mschapMethods() {
    return chosen([](const Method &method) { return method.family().runsProgram; });
}

void PrintTo(const Limits &limits, std::ostream *stream) {
    *stream << "idle " << limits.idle << ", session " << limits.session;
}

void PrintTo(const Method &method, std::ostream *stream) {
    *stream << method.name;
}

Outcome logIn(const Method &method, const char *userName, const char *password, Limits *limits) {
    Limits unused;
    Limits &places = limits != nullptr ? *limits : unused;
    return runAs(method.name,
                 [&] { return method.login(userName, password, &places.idle, &places.session); });
}

std::vector<std::string> texts(const std::vector<LogLine> &lines) {
    std::vector<std::string> all;
    for (const LogLine &line : lines) {
        EXPECT_EQ(kLibraryModule, line.module);
        all.push_back(std::to_string(line.level) + " " + line.function + ": " + line.text);
    }
    return all;
}

Attributes grant() {
    return Attributes().addText(18, "Hello").addInteger(27, 7201).addText(24, "ab");
}

void expectSaid(const Method &method, const Outcome &run, bool accepted,
                const std::string &userName) {
    expectExactly(outcomeOf(method, accepted, userName), run);
}

void expectSaidWithGrant(const Method &method, const Outcome &run, bool accepted,
                         const std::string &alsoLogged) {
    Said said = outcomeOf(method, accepted, "nemo");
    if (method.shown == Shown::kAlways || (method.shown == Shown::kAccepted && accepted)) {
        if (method.heading == Heading::kPrinted) {
            said.output += "Attributes Received: \n";
        } else if (method.heading == Heading::kTraced) {
            said.told.push_back(lineOf(method, kTrace, "Attributes Received: \n"));
        }
        said.output += kPrintedGrant;
        said.told.emplace_back(kLoggedGrant);
        if (!alsoLogged.empty()) {
            said.told.push_back(alsoLogged);
        }
    }
    expectExactly(said, run);
    // A trace is no problem that anybody sees.
    EXPECT_EQ(!accepted && method.failureLevel == kError ? 1U : 0U, run.problems.size());
}

}  // namespace lanyard::test
