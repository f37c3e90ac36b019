// The command "login": does a login work, and why not?
#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include <lanyard/radius/engine.h>
#include <lanyard/radius/frame.h>

#include "command.h"
#include "configuration.h"
#include "inquiry.h"
#include "login.h"
#include "secret.h"
#include "style.h"

namespace lanyardctl {
namespace {

constexpr const char *kLoginFooter =
    "The password is asked for without echo. Where standard input is no terminal, its first line "
    "is\n"
    "the password; --password-file FILE takes the first line of a file.\n"
    "When a server gives no valid answer, a second question tells why where it can be told: a "
    "login of\n"
    "the user 'lanyardctl', which the server's log will show.\n"
    "MS-CHAPv2 takes the published SHA-1, as radmschapv2 --standard-sha1 does.";

struct Options {
    std::string file = radLibDefConf();
    std::string method = "pap";
    std::string user = {};
    std::optional<std::string> passwordFile = {};
};

const MethodName &methodOf(const std::string &name) {
    return *std::find_if(kMethods.begin(), kMethods.end(),
                         [&name](const MethodName &row) { return row.name == name; });
}

struct Word {
    const char *word;
    const char *next;
    Tone tone;
};

Word wordOf(int code) {
    switch (code) {
        case RAD_CODE_ACCESS_ACCEPT:
            return {"accepted", "", Tone::kGood};
        case RAD_CODE_ACCESS_REJECT:
            return {
                "rejected",
                "the secret is right and the server says no: wrong password, unknown user, or a "
                "login method or a device that it does not allow; its log says which",
                Tone::kBad};
        case RAD_CODE_ACCESS_CHALLENGE:
            return {
                "challenged",
                "the server asks for more, such as a one-time code, which this method cannot give",
                Tone::kDoubtful};
        default:
            return {"no valid answer", "", Tone::kBad};
    }
}

std::string textOf(const RadLastError &error) {
    std::array<char, RAD_LAST_ERROR_TEXT_SIZE> text{};
    radLastErrorText(&error, text.data(), text.size());
    return text.data();
}

// Reasons of this machine's own, which no question to the server tells more about, and what to look at.
struct OwnReason {
    int reason;
    const char *next;
};
constexpr auto kOwnReasons = std::to_array<OwnReason>({
    {RAD_REASON_NO_OWN_ADDRESS,
     "give this machine's own name an address in /etc/hosts, or the server's entry a "
     "nas-identifier"},
    {RAD_REASON_PACK, "a nas-identifier has at most 253 characters"},
    {RAD_REASON_NO_MEMORY, ""},
    {RAD_REASON_NO_RANDOM, ""},
    {RAD_REASON_TOO_LARGE, ""},
});

const OwnReason *ownReasonOf(const RadLastError &error) {
    const auto *const found =
        std::find_if(kOwnReasons.begin(), kOwnReasons.end(),
                     [&error](const OwnReason &row) { return row.reason == error.reason; });
    return found == kOwnReasons.end() ? nullptr : found;
}

// What the second question finds out about a server.
Finding findingAt(const RadLastError &error, const RadServer &server) {
    constexpr std::chrono::seconds kWait{2};
    return inquire(server, RAD_SERVER_AUTH,
                   std::min<std::chrono::milliseconds>(kWait, std::chrono::seconds(error.timeout)));
}

std::string reasonAt(const RadLastError &error, const Finding &finding) {
    const bool isTold = finding.state != State::kAnswers && finding.state != State::kSilent;
    return isTold ? wordsFor(finding) : error.reason == 0 ? codeName(error.code) : "";
}

std::string nextAt(const RadLastError &error, const Finding &finding, const RadServer &server) {
    if (finding.state != State::kAnswers) {
        return nextStepFor(finding, server);
    }
    return error.reason == RAD_REASON_NO_REPLY
               ? "the server answers other questions and is silent about this login: its log says "
                 "why "
                 "(a proxy may wait for another server)"
               : "the server answers other questions: its answer to this login is not valid";
}

// One server that gave no valid answer.
struct Trouble {
    std::string what;
    std::string reason;
    std::string next;
};

std::vector<Trouble> troublesOf(const LoginOutcome &outcome) {
    std::vector<Trouble> troubles;
    const std::vector<RadServer> servers = Configuration::servers(RAD_SERVER_AUTH);
    for (const RadLastError &error : outcome.servers) {
        const auto server =
            std::find_if(servers.begin(), servers.end(), [&error](const RadServer &row) {
                return std::string(row.host) == error.host && row.port == error.port;
            });
        if (error.reason == 0) {
            continue;
        }
        Trouble &trouble = troubles.emplace_back(Trouble{textOf(error), "", ""});
        if (const OwnReason *own = ownReasonOf(error)) {
            trouble.next = own->next;
        } else if (server != servers.end()) {
            const Finding finding = findingAt(error, *server);
            trouble.reason = reasonAt(error, finding);
            trouble.next = nextAt(error, finding, *server);
        }
    }
    return troubles;
}

std::string answeringServer(const LoginOutcome &outcome) {
    return outcome.code < 0 || outcome.servers.empty()
               ? ""
               : std::string(outcome.servers.back().host) + ":" +
                     std::to_string(outcome.servers.back().port);
}

Json documentOf(const Options &options, const LoginOutcome &outcome,
                const std::vector<Trouble> &troubles) {
    const Word word = wordOf(outcome.code);
    Json document = {{"ok", outcome.code == RAD_CODE_ACCESS_ACCEPT},
                     {"user", options.user},
                     {"method", options.method},
                     {"result", word.word},
                     {"milliseconds", inMicrosecondSteps(outcome.milliseconds)}};
    if (outcome.code >= 0) {
        document["server"] = answeringServer(outcome);
        document["code"] = outcome.code;
        document["code_name"] = codeName(outcome.code);
        document["signed"] = outcome.isSigned;
        document["attributes"] = asJson(outcome.attributes);
    }
    if (*word.next) {
        document["next"] = word.next;
    }
    if (!troubles.empty()) {
        Json &list = document["failed_servers"] = Json::array();
        for (const Trouble &trouble : troubles) {
            list.push_back(
                {{"what", trouble.what}, {"reason", trouble.reason}, {"next", trouble.next}});
        }
    }
    return document;
}

std::string textOf(const Options &options, const LoginOutcome &outcome,
                   const std::vector<Trouble> &troubles) {
    const Word word = wordOf(outcome.code);
    std::string text = shown(options.user) + ": " + toned(word.tone, word.word) + " (" +
                       methodOf(options.method).shown + ")";
    if (outcome.code >= 0) {
        text += ", by " + answeringServer(outcome) + " after " +
                asMilliseconds(outcome.milliseconds) + "\n  " + codeName(outcome.code) +
                (outcome.isSigned ? ", signed" : ", not signed");
        const std::string table = asTable(outcome.attributes, "  ");
        text += table.empty() ? ", without attributes" : "\n" + table;
    } else {
        text += " after " + asMilliseconds(outcome.milliseconds);
    }
    if (*word.next) {
        text += "\n" + wrapped("  Next: ", word.next);
    }
    for (const Trouble &trouble : troubles) {
        text += "\n  " + trouble.what;
        text += trouble.reason.empty() ? "" : "\n    Reason: " + toned(Tone::kBad, trouble.reason);
        text += trouble.next.empty() ? "" : "\n" + wrapped("    Next: ", trouble.next);
    }
    return text;
}

ExitCode login(const Options &options, const Report &report) {
    const Configuration configuration(options.file);
    const Secret password =
        askForPassword(options.passwordFile, "Password of " + shown(options.user) + ": ");
    const LoginOutcome outcome =
        logIn(methodOf(options.method).method, options.user, password.text());
    const std::vector<Trouble> troubles = troublesOf(outcome);
    report.answer(documentOf(options, outcome, troubles), textOf(options, outcome, troubles));
    return outcome.code == RAD_CODE_ACCESS_ACCEPT ? kDone : outcome.code < 0 ? kNoAnswer : kNo;
}

}  // namespace

void addLoginCommand(CLI::App &app, Task &task) {
    const auto options = std::make_shared<Options>();
    CLI::App &command =
        addCommand(app, "login", "Logs a user in: which server, how long, what it sends, why not",
                   task, [options](Report &report) { return login(*options, report); });
    std::vector<std::string> methods;
    methods.reserve(std::size(kMethods));
    for (const MethodName &row : kMethods) {
        methods.emplace_back(row.name);
    }
    addText(command, "USER", options->user, "", "name of the user").required();
    addText(command, "-m,--method", options->method, "METHOD",
            "pap, chap, mschap or mschapv2; pap without it")
        .check(CLI::IsMember(methods).description(""));
    addText(command, "--password-file", options->passwordFile, "FILE",
            "file whose first line is the password, - for standard input");
    addFile(command, options->file);
    command.footer(kLoginFooter);
}

}  // namespace lanyardctl
