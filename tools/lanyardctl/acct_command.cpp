// The group "acct": accounts sessions, and loses no record while no server answers.
#include <CLI/CLI.hpp>
#include <csignal>
#include <ctime>
#include <exception>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

#include <lanyard/radius/frame.h>

#include "accounting_queue.h"
#include "accounting_record.h"
#include "accounting_sender.h"
#include "attributes.h"
#include "command.h"
#include "configuration.h"
#include "inquiry.h"
#include "style.h"
#include "table.h"
#include "tools/log_to_syslog.h"
#include "tools/notify.h"
#include "trouble.h"

namespace lanyardctl {
namespace {

constexpr const char *kDefaultQueue = "/var/lib/lanyard/accounting.db";
constexpr int kEveryMax = 86'400;
constexpr const char *kTopic = "accounting";  // of what the service says

constexpr const char *kRecordFooter =
    "The record is stored before it is sent, and stays in the queue until a server answers: exit\n"
    "status 5 says that it waits there for 'lanyardctl acct flush'.";
constexpr const char *kFlushFooter =
    "The oldest first, each session in its order. Acct-Delay-Time says how old a record is. After\n"
    "two sessions in a row that nobody answers the rest waits for the next time.";

struct AccountingOptions {
    std::string file = radLibDefConf();
    std::string queue = {};
    Given given = {};
    int every = 0;
    bool usesSyslog = false;
};

AccountingQueue openQueue(const AccountingOptions &options) {
    return AccountingQueue(options.queue.empty() ? defaultFile(kDefaultQueue, true)
                                                 : options.queue);
}

// The library, with the servers and all attributes that records have.
class Accounting : private Configuration {
  public:
    explicit Accounting(const std::string &file) : Configuration(file) {
        if (servers(RAD_SERVER_ACCT).empty()) {
            throw Failure("the configuration file " + file +
                          " names no accounting server; 'acctserver' does");
        }
        completeDictionary();
    }
};

// One record

// What became of it.
struct Fate {
    bool isRecorded;
    Delivery delivery;  // empty where another process had a hand in it
};

Fate hand(const AccountingQueue &queue, int64_t id) {
    using State = AccountingQueue::State;
    const AccountingQueue::Turn turn(queue);
    Delivery delivery;
    // Another process may have sent it, or asked in vain, while this one waited for its turn.
    if (queue.stateOf(id) == State::kWaits) {
        delivery = deliver(queue, id);
    }
    return {queue.stateOf(id) == State::kGone, delivery};
}

std::string outcomeOf(const Fate &fate) {
    if (!fate.isRecorded) {
        return toned(Tone::kDoubtful, "kept") + ", no server answers";
    }
    const std::string recorded = toned(Tone::kGood, "recorded");
    return fate.delivery.servers.empty()
               ? recorded + ", sent by another process"
               : recorded + " by " + nameOf(fate.delivery.servers.back()) + " after " +
                     asMilliseconds(fate.delivery.milliseconds);
}

ExitCode account(const StatusType &status, AccountingOptions options, const Report &report) {
    const Accounting accounting(options.file);
    const bool isMade = options.given.session.empty();
    if (isMade) {
        options.given.session = newSession();
    }
    const Record record = makeRecord(status, options.given);
    if (isMade && (status.takes & kCounters) != 0) {
        report.warning("no --session-id: this is a session of its own");
    }
    const AccountingQueue queue = openQueue(options);
    const Fate fate = hand(queue, queue.store(record));
    const auto troubles = troublesOf(fate.delivery.silent, RAD_SERVER_ACCT);
    const auto attributes = shownAttributes(PacketView(record.packet).attributes());

    Json document = {{"ok", fate.isRecorded},
                     {"status", status.name},
                     {"session", record.session},
                     {"result", fate.isRecorded ? "recorded" : "kept"}};
    if (fate.isRecorded && !fate.delivery.servers.empty()) {
        document["server"] = nameOf(fate.delivery.servers.back());
        document["milliseconds"] = inMicrosecondSteps(fate.delivery.milliseconds);
    }
    if (!fate.isRecorded) {
        document["queue"] = queue.file();
        document["waiting"] = queue.waiting();
    }
    document["attributes"] = asJson(attributes);
    addTo(document, troubles);
    std::string text = std::string(status.name) + ", session " + shown(record.session) + ": " +
                       outcomeOf(fate) + "\n" + asTable(attributes, "  ") + textOf(troubles);
    if (!fate.isRecorded) {
        text += "\n  It waits in " + shown(queue.file()) + "; 'lanyardctl acct flush' sends it";
    }
    report.answer(document, text);
    return fate.isRecorded ? kDone : kNoAnswer;
}

// The queue

Delivery deliverAll(const AccountingQueue &queue) {
    const AccountingQueue::Turn turn(queue);
    return deliver(queue);
}

ExitCode flush(const AccountingOptions &options, const Report &report) {
    const AccountingQueue queue = openQueue(options);
    const Accounting accounting(options.file);
    const Delivery delivery = deliverAll(queue);
    const auto troubles = troublesOf(delivery.silent, RAD_SERVER_ACCT);
    const bool isAnswered = delivery.unanswered == 0;
    const int64_t waiting = queue.waiting();
    Json document = {{"ok", isAnswered}, {"sent", delivery.sent}, {"waiting", waiting}};
    addTo(document, troubles);
    report.answer(document, counted(delivery.sent, "record") + " sent, " + std::to_string(waiting) +
                                " waiting" + textOf(troubles));
    return isAnswered ? kDone : kNoAnswer;
}

// One round of the service. The configuration is read anew each time.
void flushOnce(const AccountingQueue &queue, const AccountingOptions &options, Report &report) try {
    if (queue.waiting() == 0) {
        return report.putRight(kTopic);
    }
    const Accounting accounting(options.file);
    const Delivery delivery = deliverAll(queue);
    if (delivery.sent != 0) {
        report.event(kTopic, counted(delivery.sent, "record") + " sent, " +
                                 std::to_string(queue.waiting()) + " waiting");
    }
    if (delivery.unanswered == 0) {
        return report.putRight(kTopic);
    }
    std::string problem = "records wait";
    for (const RadLastError &error : delivery.silent) {
        problem += "; " + describe(error);
    }
    report.problem(kTopic, problem);
} catch (const std::exception &failure) {
    report.problem(kTopic, failure.what());
}

// Nothing is lost, whatever it is at.
void end(int /*signal*/) {
    lanyard::notifyManager("STOPPING=1");
    _exit(kDone);
}

// Until SIGTERM or SIGINT.
[[noreturn]] void serveQueue(const AccountingOptions &options, Report &report) {
    if (options.usesSyslog) {
        lanyard::logToSyslog("lanyardctl");
    }
    sigset_t hangUp;
    sigemptyset(&hangUp);
    sigaddset(&hangUp, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &hangUp, nullptr);
    (void)std::signal(SIGPIPE, SIG_IGN);
    (void)std::signal(SIGTERM, end);
    (void)std::signal(SIGINT, end);
    const AccountingQueue queue = openQueue(options);
    const std::string ready = "READY=1\nSTATUS=serves " + queue.file();
    lanyard::notifyManager(ready.c_str());
    for (;;) {
        flushOnce(queue, options, report);
        const timespec wait{options.every, 0};
        if (sigtimedwait(&hangUp, nullptr, &wait) == SIGHUP) {
            lanyard::notifyReloading();
            report.event(kTopic, "reads the configuration again");
            lanyard::notifyManager(ready.c_str());
        }
    }
}

ExitCode list(const AccountingOptions &options, const Report &report) {
    const AccountingQueue queue = openQueue(options);
    const int64_t now = time(nullptr);
    Json records = Json::array();
    std::vector<Line> lines = {{"ID", "MADE", "AGE", "STATUS", "SESSION", "USER"}};
    for (auto record = queue.next(0); record; record = queue.next(record->id)) {
        records.push_back({{"id", record->id},
                           {"made", asTime(record->made)},
                           {"age_seconds", now - record->made},
                           {"status", statusOf(*record)},
                           {"session", record->session},
                           {"user", userOf(*record)},
                           {"packet", asHex(record->packet)}});
        lines.push_back({std::to_string(record->id), asTime(record->made),
                         std::to_string(now - record->made) + " s", statusOf(*record),
                         shown(record->session), shown(userOf(*record))});
    }
    report.answer({{"ok", true}, {"queue", queue.file()}, {"records", records}},
                  records.empty() ? "no record waits" : asTable(lines));
    return kDone;
}

// The command line

void addQueue(CLI::App &command, AccountingOptions &options) {
    addText(command, "--queue", options.queue, "FILE",
            std::string("file of the queue; ") + kDefaultQueue +
                " without it, under $PAL_ROOT when that is set");
}

void addRecordOptions(CLI::App &command, const StatusType &status, AccountingOptions &options) {
    addText(command, "--session-id", options.given.session, "ID",
            "Acct-Session-Id; made without it");
    for (size_t i = 0; i < kFields.size(); ++i) {
        const Field &field = kFields.at(i);
        if ((status.takes & field.group) != 0) {
            CLI::Option &option =
                addText(command, field.option, options.given.values.at(i), field.type, field.help);
            if (!field.repeats) {
                option.expected(1);
            }
            option.allow_extra_args(false);
        }
    }
    addText(command, "--attribute", options.given.attributes, "NAME=VALUE",
            "any other attribute of the dictionary; once for each")
        .allow_extra_args(false);
    addFile(command, options.file);
    addQueue(command, options);
    command.footer(kRecordFooter);
}

}  // namespace

void addAcctCommands(CLI::App &app, Task &task) {
    const auto options = std::make_shared<AccountingOptions>();
    CLI::App &group = addGroup(app, "acct", "Accounts sessions, and keeps what no server answers");
    for (const StatusType &status : kStatusTypes) {
        CLI::App &command = addCommand(
            group, status.command, status.help, task,
            [options, &status](Report &report) { return account(status, *options, report); });
        addRecordOptions(command, status, *options);
    }
    CLI::App &flushing = addCommand(group, "flush", "Sends what waits in the queue", task,
                                    [options](Report &report) -> ExitCode {
                                        if (options->every != 0) {
                                            serveQueue(*options, report);
                                        }
                                        return flush(*options, report);
                                    });
    addFile(flushing, options->file);
    addQueue(flushing, *options);
    CLI::Option &every = addText(flushing, "--every", options->every, "SECONDS",
                                 "do so again and again, in the foreground; SIGHUP: at once");
    every.check(CLI::Range(1, kEveryMax).description(""));
    flushing
        .add_flag("--syslog", options->usesSyslog, "log to syslog, not to the standard streams")
        ->needs(&every);
    flushing.footer(kFlushFooter);
    CLI::App &listing = addCommand(group, "list", "Lists what waits in the queue", task,
                                   [options](Report &report) { return list(*options, report); });
    addQueue(listing, *options);
}

}  // namespace lanyardctl
