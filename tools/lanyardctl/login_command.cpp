// The command "login": does a login work, and why not?
#include <CLI/CLI.hpp>
#include <algorithm>
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
#include "method_option.h"
#include "secret.h"
#include "style.h"
#include "table.h"
#include "trouble.h"

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

struct LoginOptions {
    std::string file = radLibDefConf();
    std::string method = "pap";
    std::string user = {};
    std::optional<std::string> passwordFile = {};
};

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

std::string answeringServer(const LoginOutcome &outcome) {
    return outcome.code < 0 || outcome.servers.empty() ? "" : nameOf(outcome.servers.back());
}

Json documentOf(const LoginOptions &options, const LoginOutcome &outcome,
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
    addTo(document, troubles);
    return document;
}

std::string textOf(const LoginOptions &options, const LoginOutcome &outcome,
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
    return text + textOf(troubles);
}

ExitCode login(const LoginOptions &options, const Report &report) {
    const Configuration configuration(options.file);
    const Secret password =
        askForPassword(options.passwordFile, "Password of " + shown(options.user) + ": ");
    const LoginOutcome outcome =
        logIn(methodOf(options.method).method, options.user, password.text());
    const std::vector<Trouble> troubles = troublesOf(outcome.servers, RAD_SERVER_AUTH);
    report.answer(documentOf(options, outcome, troubles), textOf(options, outcome, troubles));
    return outcome.code == RAD_CODE_ACCESS_ACCEPT ? kDone : outcome.code < 0 ? kNoAnswer : kNo;
}

}  // namespace

void addLoginCommand(CLI::App &app, Task &task) {
    const auto options = std::make_shared<LoginOptions>();
    CLI::App &command =
        addCommand(app, "login", "Logs a user in: which server, how long, what it sends, why not",
                   task, [options](Report &report) { return login(*options, report); });
    addText(command, "USER", options->user, "", "name of the user").required();
    addMethod(command, options->method);
    addText(command, "--password-file", options->passwordFile, "FILE",
            "file whose first line is the password, - for standard input");
    addFile(command, options->file);
    command.footer(kLoginFooter);
}

}  // namespace lanyardctl
