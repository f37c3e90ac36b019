// radeapd: the EAP relay as a service.
//
// It looks at its database before it becomes a daemon, while somebody reads what it says: without
// database and dictionary a relay runs, and drops every packet.
//
// SIGHUP has nothing to read again, and says so. The database is read anew for each notice, and the
// dictionary is not exchanged under the conversations that use it.
//
// SIGTERM ends it within a second. The relay ends between two packets, but a packet may wait for
// silent servers for minutes. So the signal is taken by a thread of its own, which hands it to the
// relay and ends the process if the relay has not done so by then.
#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <pthread.h>
#include <syslog.h>
#include <unistd.h>

#include <dbaccess.h>
#include <lanyard/radius/eap.h>
#include <lanyard/radius/frame.h>
#include <lanyard/radius/mgmt.h>
#include <lanyard/radius/relay.h>
#include <palcore.h>

#include "tools/notify.h"

namespace {

// There are never more conversations than RAD_EAP_LIFE and one: without requests in flight because
// the relay forgets one after as many passes, and a pass takes in one packet at most; else because
// the oldest one makes room. All of them find room, whatever is sent: the library's own partition,
// or one for conversations of usual size, can be filled by anybody who is on a cable, and then nobody
// logs in.
constexpr uint32_t kConversations = RAD_EAP_LIFE + 1;

// What the platform's pool takes for a block (docs/porting.md).
constexpr uint32_t taken(size_t size) {
    constexpr size_t kUnit = 8;
    return static_cast<uint32_t>((size + kUnit + kUnit - 1) / kUnit * kUnit);
}

// The largest conversation: an Identity response that fills a packet, again with each round, and a
// State. The name takes one byte more than the packet has of it, for its end. And what the relay keeps
// beside the public record, port information above all.
constexpr size_t kIdentityHeaderSize = 5;
constexpr uint32_t kBesideSize = 400;
constexpr uint32_t kConversationSize = taken(sizeof(RadEapQueueEntry)) + taken(RAD_EAP_PACKET_MAX) +
                                       taken(RAD_EAP_PACKET_MAX - kIdentityHeaderSize + 1) +
                                       taken(sizeof(RadPair)) + kBesideSize;

// For a reply of two thousand empty attributes (650 KiB), dictionary and servers, and for requests in
// flight: each keeps its packet and a copy of its attributes, which are as long as the EAP packet, and
// not quite 700 bytes.
constexpr long kInFlightMax = 256;
constexpr uint32_t kRequestSize = 5000;
constexpr uint32_t kWorkingSize = (2U << 20U) + kInFlightMax * kRequestSize;

// 15 MiB of addresses. The system gives it a page of memory when the pool first uses that; with the
// logins of an ordinary day it is a few of them.
constexpr uint32_t kPartitionSize = 15U << 20U;
static_assert(kPartitionSize >= kConversations * kConversationSize + kWorkingSize);

constexpr long kEndNanoseconds = 800'000'000;
constexpr long kSecond = 1'000'000'000;

// Set by --foreground.
bool staysInForeground = false;

constexpr const char *kNothingToReload =
    "nothing to read again: 'lanyardctl db serve' brings the servers, a restart another dictionary";

sigset_t awaitedSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGHUP);
    if (staysInForeground) {
        sigaddset(&signals, SIGINT);
    }
    return signals;
}

void answerReload() {
    lanyard::notifyReloading();
    if (staysInForeground) {
        (void)std::fprintf(stderr, "radeapd: %s\n", kNothingToReload);
    } else {
        syslog(LOG_INFO, "%s", kNothingToReload);
    }
    lanyard::notifyManager("READY=1");
}

// Polls for as long as another task of the relay's name is there, which may be ten seconds.
void *handSignalOn(void * /*unused*/) {
    radEapExit(SIGTERM);
    return nullptr;
}

void *awaitEnd(void * /*unused*/) {
    const sigset_t awaited = awaitedSignals();
    int signal = 0;
    while (sigwait(&awaited, &signal) != 0 || signal == SIGHUP) {
        answerReload();
    }
    lanyard::notifyManager("STOPPING=1");
    timespec end{};
    clock_gettime(CLOCK_MONOTONIC, &end);
    end.tv_nsec += kEndNanoseconds;
    end.tv_sec += end.tv_nsec / kSecond;
    end.tv_nsec %= kSecond;
    pthread_t thread{};
    if (pthread_create(&thread, nullptr, handSignalOn, nullptr) != 0) {
        handSignalOn(nullptr);
    }
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr);
    _exit(EXIT_SUCCESS);
}

// Without memory for a second thread the relay's own handler of SIGTERM has to do, and SIGHUP stays
// ignored.
void startAwaitingEnd(const sigset_t &awaited) {
    pthread_t thread{};
    if (pthread_create(&thread, nullptr, awaitEnd, nullptr) != 0) {
        pthread_sigmask(SIG_UNBLOCK, &awaited, nullptr);
        return;
    }
    (void)std::signal(SIGHUP, SIG_DFL);
}

// The relay is on the bus, and alone: fork() leaves one thread.
// A signal that comes before the thread that takes it is there waits for it.
void detach(void * /*unused*/) {
    const sigset_t awaited = awaitedSignals();
    pthread_sigmask(SIG_BLOCK, &awaited, nullptr);
    if (!staysInForeground && daemon(0, 0) != 0) {
        staysInForeground = true;  // where it cannot
    }
    palTaskDelay(0);  // a process that does not fork gets the relay's name with a task function
    startAwaitingEnd(awaited);
    lanyard::notifyManager("READY=1\nSTATUS=serves the authenticators on the bus");
}

struct TableDeleter {
    void operator()(char **table) const { sqlite3_free_table(table); }
};

// Says why a relay cannot work with this database.
void tellProblem(const char *file) {
    if (access(file, R_OK) != 0) {
        std::fprintf(stderr, "radeapd: cannot read the database %s: %s\n", file,
                     std::strerror(errno));
        return;
    }
    int32_t columns = 0;
    int32_t rows = 0;
    const std::unique_ptr<char *, TableDeleter> table(sqlite3QueryResGet(
        nullptr, file, "SELECT value FROM environment WHERE name='RADIUS_DICTIONARY'", &columns,
        &rows));
    const char *dictionary = rows > 0 ? table.get()[columns] : nullptr;
    if (!table) {
        std::fprintf(stderr,
                     "radeapd: %s is no database with a table 'environment', or it is locked; "
                     "'lanyardctl db init' makes what is missing\n",
                     file);
    } else if (!dictionary) {
        std::fprintf(stderr,
                     "radeapd: the database %s names no dictionary; 'lanyardctl db init "
                     "--dictionary FILE' names one\n",
                     file);
    } else {
        std::fprintf(stderr,
                     "radeapd: the dictionary '%s' cannot be loaded; 'lanyardctl db init "
                     "--dictionary FILE' names another one\n",
                     dictionary);
    }
}

// Whether the relay can work with what the command line says. A wrong command line is left to the
// relay, which has words for it.
bool canWork(int argc, char *argv[]) {
    const char *database = nullptr;
    opterr = 0;
    for (int option = getopt(argc, argv, "vfd:"); option != -1;
         option = getopt(argc, argv, "vfd:")) {
        if (option == 'd') {
            database = optarg;
        } else if (option == '?' || (option == 'f' && !database)) {
            opterr = 1;
            return true;
        }
    }
    opterr = 1;
    if (!database) {
        std::fprintf(stderr,
                     "radeapd: name the device's database with -d; without it there are no servers "
                     "to ask\n");
        return false;
    }
    if (radiusMgmtInit(database, "radEap") != 0) {
        tellProblem(database);
        return false;
    }
    radiusMgmtDeInit();
    return true;
}

// An option of this program, with a number or without.
struct Option {
    const char *name;
    int number;  // RAD_OPTION_
    long most;   // of its number; 0 when it has none
    int value;   // without a number
    const char *help;
};

constexpr int kForeground = -1;  // no option of the library

constexpr std::array kOptions{
    Option{"--in-flight", RAD_OPTION_EAP_IN_FLIGHT, kInFlightMax, 0,
           "requests that wait for servers at once (64); 1: one after the other"},
    Option{"--dead-time", RAD_OPTION_DEAD_TIME, 86400, 0,
           "seconds in which a server that did not answer is asked last (60)"},
    Option{"--status-server", RAD_OPTION_STATUS_SERVER, 0, 1,
           "have Status-Server packets ask whether a dead server is back"},
    Option{"--accept-unsigned", RAD_OPTION_REQUIRE_MESSAGE_AUTHENTICATOR, 0, -1,
           "believe an Accept or a Reject without Message-Authenticator"},
    Option{"--foreground", kForeground, 0, 1, "do not become a daemon"},
};

constexpr int kInFlight = 64;

const Option *findOption(const char *argument) {
    const auto *const found =
        std::find_if(kOptions.begin(), kOptions.end(),
                     [&](const Option &option) { return std::strcmp(option.name, argument) == 0; });
    return found == kOptions.end() ? nullptr : found;
}

// Sets this program's options and takes them from the command line: the relay has its own.
bool takeOptions(int &argc, char *argv[]) {
    radOptionSet(RAD_OPTION_EAP_IN_FLIGHT, kInFlight);
    int kept = 1;
    for (int index = 1; index < argc; ++index) {
        const Option *option = findOption(argv[index]);
        if (!option) {
            argv[kept++] = argv[index];
            continue;
        }
        int value = option->value;
        if (option->most != 0) {
            char *end = nullptr;
            const char *text = ++index < argc ? argv[index] : "";
            const long number = std::strtol(text, &end, 10);
            if (end == text || *end != '\0' || number < 1 || number > option->most) {
                std::fprintf(stderr, "radeapd: %s takes a number from 1 to %ld, not '%s'\n",
                             option->name, option->most, text);
                return false;
            }
            value = static_cast<int>(number);
        }
        if (option->number == kForeground) {
            staysInForeground = true;
        } else {
            radOptionSet(option->number, value);
        }
    }
    argc = kept;
    argv[argc] = nullptr;
    return true;
}

void printHelp() {
    std::puts(
        "radeapd: the EAP relay, between port-access authenticators on the bus and RADIUS "
        "servers.\n"
        "Usage: radeapd [options] -d DATABASE\n"
        "  -d DATABASE           the device's database\n"
        "  -v, -f                nothing; for start scripts that have them");
    for (const Option &option : kOptions) {
        std::printf("  %s %-*s %s\n", option.name, static_cast<int>(20 - std::strlen(option.name)),
                    option.most != 0 ? "N" : "", option.help);
    }
    std::puts("  --help, --version     alone: print this, or the version");
}

}  // namespace

int main(int argc, char *argv[]) {
    const char *only = argc == 2 ? argv[1] : "";
    if (std::strcmp(only, "--help") == 0) {
        printHelp();
        return EXIT_SUCCESS;
    }
    if (std::strcmp(only, "--version") == 0) {
        std::puts("radeapd " LANYARD_VERSION);
        return EXIT_SUCCESS;
    }
    (void)std::signal(SIGHUP, SIG_IGN);
    openlog("radeapd", LOG_PID, LOG_DAEMON);
    if (!takeOptions(argc, argv)) {
        return EXIT_FAILURE;
    }
    radiusPartIdInit(palMemPartCreate("radeapd", nullptr, kPartitionSize));
    if (!canWork(argc, argv)) {
        return EXIT_FAILURE;
    }
    radEapDetachInstall(detach, nullptr);
    return radEapMain(argc, argv) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
