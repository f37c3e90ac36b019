#include "tests/unit/login/methods.h"

#include <algorithm>
#include <array>

#include <lanyard/radius/methods.h>

namespace lanyard::test {
namespace {

const Bytes kChapChallenge = "000102030405060708090a0b0c0d0e0f"_hex;
constexpr uint8_t kChapIdentifier = 0x2a;
constexpr const char *kBadPassword = "Invalid username or password";
constexpr const char *kBadResponse = "Invalid username, challenge or response";

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

// What a login that ended says: on standard output, and in the log.
struct Said {
    std::string output;
    std::vector<std::string> told;
};

Said saidBy(const Method &method, bool accepted, const std::string &userName) {
    const std::string text = "\"" + userName + "\" RADIUS Authentication ";
    if (!accepted) {
        return {"", {method.line(method.failureLevel, text + "failure")}};
    }
    return method.printsSuccess ? Said{text + "OK\n", {}}
                                : Said{"", {method.line("trace", text + "OK")}};
}

}  // namespace

const Family &pap() {
    static const Family family{{1, 2, 6, 4, 80}, 3, false, kBadPassword, papAttributes};
    return family;
}

const Family &chap() {
    static const Family family{{1, 6, 3, 60, 4, 80}, 4, false, kBadResponse, chapAttributes};
    return family;
}

const Family &mschap() {
    static const Family family{{1, 26, 26, 6, 4, 80}, 4, true, "", mschapAttributes};
    return family;
}

const Family &mschapv2() {
    static const Family family{{1, 26, 26, 6, 4, 80}, 4, true, "", mschapv2Attributes};
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
    // clang-format off
    static const std::vector<Method> rows{
        {"radAuth", plain<radAuth>, pap,
         "error", "error", true, Shown::kAlways, Heading::kPrinted},
        {"radAuthCheckAllServer", everywhere, pap,
         "trace", "trace", false, Shown::kAlways, Heading::kTraced, false, true},
        {"radAuthAndGetAttributes", radAuthAndGetAttributes, pap,
         "error", "trace", false, Shown::kAlways, Heading::kPrinted, true},
        {"radChapAuth", plainChap, chap,
         "error", "error", true, Shown::kAlways, Heading::kPrinted},
        {"radChapAuthAndGetAttributes", chapForLimits, chap,
         "trace", "trace", false, Shown::kAlways, Heading::kTraced, true},
        {"radMschap", plain<radMschap>, mschap,
         "", "error", true, Shown::kNever, Heading::kNone},
        {"radMschapAndGetAttributes", radMschapAndGetAttributes, mschap,
         "", "error", false, Shown::kAccepted, Heading::kNone, true},
        {"radMschapv2", plain<radMschapv2>, mschapv2,
         "", "error", true, Shown::kNever, Heading::kNone},
        {"radMschapv2AndGetAttributes", radMschapv2AndGetAttributes, mschapv2,
         "", "error", false, Shown::kAccepted, Heading::kNone, true}};
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

Attributes grant() {
    return Attributes().addText(18, "Hello").addInteger(27, 7201).addText(24, "ab");
}

testing::Matcher<const Outcome &> Verdict(const Method &method, bool accepted,
                                          const std::string &userName) {
    const Said said = saidBy(method, accepted, userName);
    return Ended(accepted ? 0 : -1, said.output, said.told);
}

testing::Matcher<const Outcome &> VerdictWithGrant(const Method &method, bool accepted,
                                                   const std::string &alsoLogged) {
    Said said = saidBy(method, accepted, "nemo");
    // A trace is no problem that anybody sees.
    const size_t problems = said.told.empty() || said.told[0].starts_with("trace") ? 0 : 1;
    if (method.shown == Shown::kAlways || (method.shown == Shown::kAccepted && accepted)) {
        if (method.heading == Heading::kPrinted) {
            said.output += "Attributes Received: \n";
        } else if (method.heading == Heading::kTraced) {
            said.told.push_back(method.line("trace", "Attributes Received: "));
        }
        said.output += "Reply-Message: Hello\nState: 0x6162\n";
        said.told.emplace_back("packet radPairShow> Session-Timeout: 7201");
        if (!alsoLogged.empty()) {
            said.told.push_back(alsoLogged);
        }
    }
    return testing::AllOf(Ended(accepted ? 0 : -1, said.output, said.told),
                          testing::Property(&Outcome::problemLog, testing::SizeIs(problems)));
}

testing::Matcher<const Outcome &> Refused(const Method &method) {
    const std::string refusal = method.family().refusal;
    return EndedWithLog(-1, "",
                        refusal.empty() ? std::vector<std::string>()
                                        : std::vector{method.line(method.refusalLevel, refusal)});
}

}  // namespace lanyard::test
