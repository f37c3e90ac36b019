// radeapd: the EAP relay as a service.
//
// It looks at its database before it becomes a daemon, while somebody reads what it says: without
// database and dictionary a relay runs, and drops every packet.
//
// SIGHUP changes nothing. The database is read anew for each notice, and the dictionary is not
// exchanged under the conversations that use it.
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
#include <unistd.h>

#include <dbaccess.h>
#include <lanyard/radius/eap.h>
#include <lanyard/radius/frame.h>
#include <lanyard/radius/mgmt.h>
#include <palcore.h>

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

sigset_t termSignal() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    return signals;
}

// Polls for as long as another task of the relay's name is there, which may be ten seconds.
void *handSignalOn(void * /*unused*/) {
    radEapExit(SIGTERM);
    return nullptr;
}

void *awaitEnd(void * /*unused*/) {
    const sigset_t term = termSignal();
    int signal = 0;
    sigwait(&term, &signal);
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

// Runs in the daemon, where fork() has left one thread. Without memory for a second one the relay's
// own handler has to do.
void startAwaitingEnd() {
    const sigset_t term = termSignal();
    pthread_sigmask(SIG_BLOCK, &term, nullptr);
    pthread_t thread{};
    if (pthread_create(&thread, nullptr, awaitEnd, nullptr) != 0) {
        pthread_sigmask(SIG_UNBLOCK, &term, nullptr);
    }
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
    bool hasValue;
    int value;  // without one of its own
    long most;
};

constexpr std::array kOptions{
    Option{"--in-flight", RAD_OPTION_EAP_IN_FLIGHT, true, 0, kInFlightMax},
    Option{"--dead-time", RAD_OPTION_DEAD_TIME, true, 0, 86400},
    Option{"--status-server", RAD_OPTION_STATUS_SERVER, false, 1, 0},
    Option{"--accept-unsigned", RAD_OPTION_REQUIRE_MESSAGE_AUTHENTICATOR, false, -1, 0},
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
        if (option->hasValue) {
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
        radOptionSet(option->number, value);
    }
    argc = kept;
    argv[argc] = nullptr;
    return true;
}

}  // namespace

int main(int argc, char *argv[]) {
    std::signal(SIGHUP, SIG_IGN);
    if (!takeOptions(argc, argv)) {
        return EXIT_FAILURE;
    }
    radiusPartIdInit(palMemPartCreate("radeapd", nullptr, kPartitionSize));
    if (!canWork(argc, argv)) {
        return EXIT_FAILURE;
    }
    pthread_atfork(nullptr, nullptr, startAwaitingEnd);
    return radEapMain(argc, argv) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
