// pnac-wired: the port-access authenticator (IEEE 802.1X) of an Ethernet interface. It hands the
// supplicants' EAP packets to the EAP relay over the management bus. docs/eap-relay.md tells the
// whole story.
//
// One thread does everything. It waits for frames, records, signals, news of the link and the next
// deadline at once, and does nothing while none of them comes.
//
// A bus without a descriptor cannot be waited for in that way. There the program waits for whoever
// speaks next: for the relay while it has a packet, with a look at the rest in short turns; otherwise
// for the rest, with a look at the bus now and then.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <initializer_list>
#include <optional>
#include <poll.h>
#include <random>
#include <stdexcept>
#include <string>
#include <sys/signalfd.h>
#include <unistd.h>
#include <vector>

#include "tools/file_descriptor.h"
#include "tools/log_to_syslog.h"
#include "tools/notify.h"
#include "tools/pnac_wired/authenticator.h"
#include "tools/pnac_wired/bus.h"
#include "tools/pnac_wired/ethernet.h"
#include "tools/pnac_wired/options.h"
#include "tools/pnac_wired/output.h"
#include "tools/pnac_wired/programs.h"
#include "tools/pnac_wired/report.h"
#include "tools/pnac_wired/status.h"
#include "tools/pnac_wired/status_socket.h"

namespace lanyard::pnac {
namespace {

using std::chrono::milliseconds;

Duration toDuration(double seconds) {
    return std::chrono::duration_cast<Duration>(std::chrono::duration<double>(seconds));
}

std::optional<Time> earliest(std::initializer_list<std::optional<Time>> deadlines) {
    std::optional<Time> first;
    for (const auto &deadline : deadlines) {
        if (deadline && (!first || *deadline < *first)) {
            first = deadline;
        }
    }
    return first;
}

// All signals that would end the program come in here, blocked from now on, so that it ends the
// sessions before it goes. Left out are those of faults, after which nothing can be relied upon, and
// those that stop it or mean nothing to it. A write that fails has its error for a signal.
FileDescriptor catchSignals() {
    sigset_t signals;
    sigfillset(&signals);
    for (const int signal : {SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGSEGV, SIGSYS, SIGTRAP, SIGCONT,
                             SIGTSTP, SIGTTIN, SIGTTOU, SIGURG, SIGWINCH, SIGPIPE, SIGXFSZ}) {
        sigdelset(&signals, signal);
    }
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    (void)std::signal(SIGPIPE, SIG_IGN);
    (void)std::signal(SIGXFSZ, SIG_IGN);
    return {signalfd(-1, &signals, SFD_NONBLOCK | SFD_CLOEXEC), "signalfd"};
}

std::optional<Port> portOf(const Options &options, const Ethernet &ethernet) {
    if (options.noPortInformation) {
        return std::nullopt;
    }
    return Port{.number = static_cast<uint32_t>(ethernet.index()),
                .name = options.interface,
                .address = ethernet.address()};
}

void complain(const std::exception &error) {
    (void)std::fprintf(stderr, "pnac-wired: %s\n", error.what());
}

class Program final : private Outlet {
  public:
    explicit Program(const Options &options)
        : interface_(options.interface),
          output_(STDOUT_FILENO),
          signals_(catchSignals()),
          ethernet_(options.interface),
          bus_([this](ByteView record) { authenticator_.receiveRecord(record, Clock::now()); }),
          programs_({.interface = options.interface,
                     .onAuthorized = options.onAuthorized,
                     .onUnauthorized = options.onUnauthorized}),
          reporter_(options.interface,
                    options.json ? Reporter::Format::kJson : Reporter::Format::kText,
                    options.showKeys),
          authenticator_({.address = ethernet_.address(),
                          .port = portOf(options, ethernet_),
                          .interval = toDuration(options.interval),
                          .repeats = options.repeats,
                          .supplicantsMax = options.supplicantsMax,
                          .quietPeriod = toDuration(options.quietPeriod),
                          .relayTimeout = toDuration(options.relayTimeout),
                          .askAgain = toDuration(options.askAgain)},
                         *this, [this] { return random_(); }) {}

    int run() {
        try {
            // Nobody's login depends on it.
            attempt([this] {
                status_.emplace(statusFolder(), interface_, [this] { return statusLine(); });
            });
            output_.say(reporter_.ready(ethernet_.address()));
            notifyManager(("READY=1\nSTATUS=guards " + interface_).c_str());
            while (!stopped_) {
                serve();
            }
        } catch (const std::exception &error) {
            complain(error);
            failed_ = true;
        }
        notifyManager("STOPPING=1");
        status_.reset();
        // Whatever has ended it: no session is left open.
        authenticator_.shutDown(Clock::now());
        finishPrograms();
        sayCounters();
        finishOutput();
        return failed_ ? EXIT_FAILURE : EXIT_SUCCESS;
    }

  private:
    // In batches, so that a flood of the one stops neither the other nor the signals.
    static constexpr int kFramesAtOnce = 64;
    static constexpr int kRecordsAtOnce = 64;

    // How long the rest waits for a bus without a descriptor, and that for the rest.
    static constexpr milliseconds kBusTurn{2};
    static constexpr milliseconds kRestTurn{1000};

    static constexpr milliseconds kFinish{700};
    static constexpr milliseconds kFinishOutput{100};

    void serve() {
        wait();
        if (mayHaveCome(bus_.awaited())) {
            readRecords();
        }
        if (mayHaveCome(signals_.get())) {
            readSignals();
        }
        if (mayHaveCome(ethernet_.linkNews())) {
            readLink();
        }
        if (mayHaveCome(ethernet_.frames())) {
            readFrames();
        }
        const Time now = Clock::now();
        authenticator_.tick(now);
        programs_.tick(now);
        output_.flush();
        if (status_ && (status_->isServing() || mayHaveCome(status_->listener()))) {
            status_->serve();
        }
    }

    void sendFrame(ByteView frame) override { ethernet_.send(frame); }
    HandOver sendRecord(ByteView record) override { return bus_.send(record); }
    // Where a step fails, the others that are to come are taken all the same.
    template <typename Step>
    static void attempt(Step step) {
        try {
            step();
        } catch (const std::exception &error) {
            complain(error);
        }
    }

    void report(const Event &event) override {
        attempt([&] { programs_.run(event, Clock::now()); });
        attempt([&] { output_.say(reporter_.event(event)); });
    }

    ProgramCounters programCounters() const {
        return {.supplicants = authenticator_.supplicants(),
                .framesNotSent = ethernet_.notSent(),
                .linesLost = output_.linesLost()};
    }

    void sayCounters() {
        output_.say(reporter_.counters(authenticator_.counters(), programCounters()));
    }

    std::string statusLine() const {
        return pnac::statusLine({.interface = interface_,
                                 .address = ethernet_.address(),
                                 .now = Clock::now(),
                                 .wallNow = time(nullptr)},
                                authenticator_.status(), authenticator_.counters(),
                                programCounters());
    }

    // Waits until there is something to do.
    void wait() {
        const bool inTurns = bus_.awaited() < 0;
        if (inTurns && authenticator_.awaitsRelay()) {
            polled_.clear();
            bus_.listen(kBusTurn);
            return;
        }
        const auto turn = inTurns ? std::optional(Clock::now() + kRestTurn) : std::nullopt;
        waitFor({bus_.awaited(), ethernet_.frames(), ethernet_.linkNews(), signals_.get()},
                earliest({authenticator_.nextDeadline(), programs_.nextDeadline(), turn}));
    }

    // Waits for one of them, -1 for none, for room at the output, or for who wants the status.
    void waitFor(std::initializer_list<int> inputs, std::optional<Time> until) {
        polled_.assign({{.fd = output_.awaited(), .events = POLLOUT, .revents = 0}});
        for (const int fd : inputs) {
            polled_.push_back({.fd = fd, .events = POLLIN, .revents = 0});
        }
        if (status_) {
            status_->addTo(polled_);
        }
        timespec wait = {};
        if (until) {
            const auto left = std::max(*until - Clock::now(), Duration::zero());
            const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
            wait.tv_sec = static_cast<time_t>(seconds.count());
            wait.tv_nsec = static_cast<long>(std::chrono::nanoseconds(left - seconds).count());
        }
        ppoll(polled_.data(), polled_.size(), until ? &wait : nullptr, nullptr);
    }

    // False when it was waited for in vain.
    bool mayHaveCome(int fd) const {
        const auto known = std::find_if(polled_.begin(), polled_.end(),
                                        [fd](const pollfd &entry) { return entry.fd == fd; });
        return fd < 0 || known == polled_.end() || known->revents != 0;
    }

    // What waits on the bus; a queue that is full would make the relay drop its answers.
    void readRecords() {
        for (int i = 0; i < kRecordsAtOnce && bus_.listen(); ++i) {
        }
    }

    void readFrames() {
        for (int i = 0; i < kFramesAtOnce; ++i) {
            const auto frame = ethernet_.receive();
            if (!frame) {
                return;
            }
            authenticator_.receiveFrame(*frame, Clock::now());
        }
    }

    // What was sent before the link went down is not news of a link that is up.
    void dropFrames() {
        for (int i = 0; i < kFramesAtOnce * kFramesAtOnce && ethernet_.receive(); ++i) {
        }
    }

    void readLink() {
        ethernet_.receiveLink([this](Ethernet::Link link) {
            if (link == Ethernet::Link::kUp) {
                authenticator_.linkUp(Clock::now());
                return;
            }
            authenticator_.linkDown(Clock::now());
            dropFrames();
            if (link == Ethernet::Link::kGone) {
                (void)std::fprintf(stderr, "pnac-wired: the interface is gone\n");
                stopped_ = true;
                failed_ = true;
            }
        });
    }

    void readSignals() {
        signalfd_siginfo signal = {};
        while (read(signals_.get(), &signal, sizeof(signal)) ==
               static_cast<ssize_t>(sizeof(signal))) {
            switch (signal.ssi_signo) {
                case SIGCHLD:
                    programs_.reap(Clock::now());
                    break;
                case SIGUSR1:
                    sayCounters();
                    break;
                case SIGHUP:
                    // All that it reads is on the command line, but for the state of the link.
                    notifyReloading();
                    attempt([this] { ethernet_.requestLink(); });
                    notifyManager("READY=1");
                    break;
                default:
                    stopped_ = true;
                    break;
            }
        }
    }

    // Gives the last programs a moment; those that run on do so alone.
    void finishPrograms() {
        const Time end = Clock::now() + kFinish;
        programs_.startAll(Clock::now());
        while (!programs_.idle() && Clock::now() < end) {
            waitFor({signals_.get()}, end);
            readSignals();
            output_.flush();
        }
        programs_.overtake(Clock::now());
    }

    // Gives a slow reader a moment for the last lines.
    void finishOutput() {
        const Time end = Clock::now() + kFinishOutput;
        while (!output_.idle() && Clock::now() < end) {
            waitFor({}, end);
            output_.flush();
        }
    }

    std::string interface_;
    Output output_;  // the first: what is opened behind it may get the number of a closed one
    FileDescriptor signals_;
    Ethernet ethernet_;
    Bus bus_;
    Programs programs_;
    Reporter reporter_;
    std::random_device random_;
    Authenticator authenticator_;
    std::optional<StatusSocket> status_;
    std::vector<pollfd> polled_;
    bool stopped_ = false;
    bool failed_ = false;
};

// Prints the status of a running one, or of all. Returns the exit status.
int showStatus(const Options &options) {
    const std::string folder = statusFolder();
    const auto interfaces = options.interface.empty() ? statusInterfaces(folder)
                                                      : std::vector<std::string>{options.interface};
    bool isAny = false;
    for (const std::string &interface : interfaces) {
        const auto line = askStatus(folder, interface);
        if (!line) {
            continue;
        }
        const auto text = options.json ? line : statusTable(*line);
        if (!text) {
            throw std::runtime_error(interface + ": the answer is no status");
        }
        (void)std::fputs(text->c_str(), stdout);
        isAny = true;
    }
    if (!isAny) {
        throw std::runtime_error("does not run" +
                                 (options.interface.empty() ? "" : " on " + options.interface));
    }
    return EXIT_SUCCESS;
}

int runWith(int argc, char **argv) {
    Options options;
    if (const auto status = readOptions(argc, argv, options)) {
        return *status;
    }
    if (options.showsStatus) {
        return showStatus(options);
    }
    if (options.usesSyslog) {
        logToSyslog("pnac-wired");
    }
    return Program(options).run();
}

}  // namespace
}  // namespace lanyard::pnac

int main(int argc, char **argv) {
    try {
        return lanyard::pnac::runWith(argc, argv);
    } catch (const std::exception &error) {
        lanyard::pnac::complain(error);
        return EXIT_FAILURE;
    }
}
