// The command "probe": which of the configured servers answer, how fast, and whether they sign.
#include <CLI/CLI.hpp>
#include <array>
#include <chrono>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/frame.h>

#include "command.h"
#include "configuration.h"
#include "inquiry.h"
#include "radius_packet.h"
#include "style.h"
#include "table.h"

namespace lanyardctl {
namespace {

constexpr const char *kProbeFooter =
    "Each server is asked with Status-Server (RFC 5997). Where that is silent, an authentication "
    "server\n"
    "is asked to log in the user 'lanyardctl', which it rejects and its log shows, and at last the "
    "same\n"
    "without Message-Authenticator: an answer to that tells a wrong secret from silence. An "
    "accounting\n"
    "server is asked nothing else, as every record counts.\n"
    "TIME is the round trip. SIGNED: the answer carries a valid Message-Authenticator.";

constexpr int kWaitMax = 60;

struct ProbeOptions {
    std::string file = radLibDefConf();
    int wait = 2;
};

struct ServerKind {
    int kind;
    const char *name;
};
constexpr std::array<ServerKind, 2> kKinds = {
    {{RAD_SERVER_AUTH, "auth"}, {RAD_SERVER_ACCT, "acct"}}};

Tone toneOf(State state) {
    return state == State::kAnswers ? Tone::kGood : Tone::kBad;
}

const char *yesOrNo(bool yes) {
    return yes ? "yes" : "no";
}

// An accounting server that is silent may only not know the question.
std::string nextStep(const Finding &finding, const RadServer &server, int kind) {
    const std::string next = nextStepFor(finding, server);
    return kind == RAD_SERVER_ACCT && finding.state == State::kSilent
               ? "it may work all the same: not every server knows Status-Server. Otherwise: " +
                     next
               : next;
}

Json documentOf(const Finding &finding, const RadServer &server, const ServerKind &kind) {
    Json document = {{"kind", kind.name},
                     {"server", nameOf(server)},
                     {"address", finding.address.empty() ? Json() : Json(finding.address)},
                     {"ok", finding.state == State::kAnswers},
                     {"state", wordsFor(finding)}};
    if (finding.code != 0) {
        document["milliseconds"] = inMicrosecondSteps(finding.milliseconds);
        document["question"] = finding.question;
        document["answer"] = codeName(finding.code);
        document["signed"] = finding.isSigned;
        document["status_server"] = finding.statusServer;
    }
    if (const std::string next = nextStep(finding, server, kind.kind); !next.empty()) {
        document["next"] = next;
    }
    return document;
}

Line lineOf(const Finding &finding, const RadServer &server, const ServerKind &kind) {
    const bool answered = finding.code != 0;
    return {kind.name,
            shown(nameOf(server)),
            finding.address.empty() ? "-" : finding.address,
            toned(toneOf(finding.state), wordsFor(finding)),
            answered ? asMilliseconds(finding.milliseconds) : "-",
            answered ? codeName(finding.code) : "-",
            answered ? yesOrNo(finding.isSigned) : "-",
            answered ? yesOrNo(finding.statusServer) : "-"};
}

ExitCode probe(const ProbeOptions &options, const Report &report) {
    const Configuration configuration(options.file);
    Json list = Json::array();
    std::vector<Line> lines = {
        {"KIND", "SERVER", "ADDRESS", "STATE", "TIME", "ANSWER", "SIGNED", "STATUS-SERVER"}};
    std::string steps;
    bool allAnswer = true;
    for (const ServerKind &kind : kKinds) {
        for (const RadServer &server : Configuration::servers(kind.kind)) {
            const Finding finding = inquire(server, kind.kind, std::chrono::seconds(options.wait));
            list.push_back(documentOf(finding, server, kind));
            lines.push_back(lineOf(finding, server, kind));
            allAnswer = allAnswer && finding.state == State::kAnswers;
            if (const std::string next = nextStep(finding, server, kind.kind); !next.empty()) {
                steps += "\n" + wrapped(shown(nameOf(server)) + ": ", next);
            }
        }
    }
    report.answer({{"ok", allAnswer}, {"servers", list}}, asTable(lines) + steps);
    return allAnswer ? kDone : kNoAnswer;
}

}  // namespace

void addProbeCommand(CLI::App &app, Task &task) {
    const auto options = std::make_shared<ProbeOptions>();
    CLI::App &command =
        addCommand(app, "probe", "Asks every configured server whether it is there", task,
                   [options](Report &report) { return probe(*options, report); });
    command
        .add_option("--wait", options->wait,
                    "seconds to wait for the answer to each question, 1 to 60; 2 without it")
        ->type_name("SECONDS")
        ->check(CLI::Range(1, kWaitMax).description(""));
    addFile(command, options->file);
    command.footer(kProbeFooter);
}

}  // namespace lanyardctl
