#include "serve.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstring>
#include <initializer_list>
#include <optional>
#include <poll.h>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "bus.h"
#include "service.h"
#include "tools/notify.h"

namespace lanyardctl {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kReplayTime{15};

// What is asked of the service, with an Order, and what it tells how that stands, with a State.
constexpr uint32_t kReplay = 1;
constexpr uint32_t kReplayState = 2;

struct Order {
    uint64_t client = 0;  // the module that is told
    uint64_t device = 0;  // the database that is meant
    uint64_t file = 0;
};

constexpr int kAccepted = 0;
constexpr int kOtherDatabase = 1;

template <typename Value>
std::string_view asData(const Value &value) {
    return {reinterpret_cast<const char *>(&value), sizeof(value)};
}

template <typename Value>
std::optional<Value> fromData(std::string_view data) {
    Value value{};
    if (data.size() != sizeof(value)) {
        return std::nullopt;
    }
    std::memcpy(&value, data.data(), sizeof(value));
    return value;
}

Order orderFor(const std::string &file) {
    struct stat status {};
    stat(file.c_str(), &status);
    return {.device = status.st_dev, .file = status.st_ino};
}

// SIGTERM and SIGINT end the service, SIGHUP makes it look at everything again. They come in at its
// one wait; the first two also while it looks, which may wait for the database. Then it ends a second
// later at the latest: nothing is lost whenever it ends.
volatile std::sig_atomic_t ends = 0;
volatile std::sig_atomic_t looksAgain = 0;

sigset_t blocked(int how, std::initializer_list<int> numbers) {
    sigset_t signals;
    sigset_t before;
    sigemptyset(&signals);
    for (const int number : numbers) {
        sigaddset(&signals, number);
    }
    pthread_sigmask(how, &signals, &before);
    return before;
}

void handle(int number, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    sigaction(number, &action, nullptr);
}

// Returns the signals that are blocked while it waits.
sigset_t handleSignals() {
    const auto end = [](int) {
        ends = 1;
        alarm(1);
    };
    const sigset_t before = blocked(SIG_BLOCK, {SIGTERM, SIGINT, SIGHUP});
    handle(SIGTERM, end);
    handle(SIGINT, end);
    handle(SIGHUP, [](int) { looksAgain = 1; });
    handle(SIGALRM, [](int) { _exit(0); });
    handle(SIGPIPE, SIG_IGN);  // It serves on when nobody reads what it says.
    return before;
}

// The service, what asks for it and all that it waits for.
class Desk {
  public:
    Desk(const std::string &file, Bus &bus, Report &report)
        : bus_(bus), relay_(bus), service_(file, relay_, report), folders_(file), file_(file) {}

    int handle(uint32_t command, std::string_view data) {
        const auto order = fromData<Order>(data);
        if (command != kReplay || !order) {
            return -1;
        }
        const Order own = orderFor(file_);
        if (order->device != own.device || order->file != own.file) {
            return kOtherDatabase;
        }
        clients_.push_back(static_cast<uint32_t>(order->client));
        told_ = Service::State::busy;
        service_.replay();
        return kAccepted;
    }

    Service::State look() {
        service_.look();
        const Service::State state = service_.state();
        if (std::exchange(told_, state) != state) {
            for (const uint32_t client : clients_) {
                bus_.notify(client, kReplayState, asData(state));
            }
        }
        if (Service::isFinal(state)) {
            clients_.clear();
        }
        return state;
    }

    void lookAgain() { service_.lookAgain(); }

    // Waits until there is something to look at, and handles a message if that is it.
    void wait(const sigset_t *signals = nullptr) {
        constexpr std::chrono::milliseconds kListenEvery{100};
        constexpr std::chrono::milliseconds kSoon{10};
        std::array<pollfd, 3> watched = {{{folders_.descriptor(), POLLIN, 0},
                                          {relay_.descriptor(), POLLIN, 0},
                                          {bus_.descriptor(), POLLIN, 0}}};
        pollfd &messages = watched.back();
        auto patience =
            std::min(messages.fd == -1 ? kListenEvery : service_.patience(), service_.patience());
        if (std::exchange(moves_, false)) {
            patience = std::min(patience, kSoon);
        }
        const timespec limit{static_cast<time_t>(patience.count() / 1000),
                             static_cast<long>(patience.count() % 1000 * 1000000)};
        ppoll(watched.data(), watched.size(), &limit, signals);
        moves_ = folders_.drain();
        if (messages.fd == -1 || messages.revents != 0) {
            bus_.listen(std::chrono::milliseconds(0));
        }
    }

  private:
    Bus &bus_;
    BusRelay relay_;
    Service service_;
    FolderWatch folders_;
    std::string file_;
    bool moves_ = false;  // a folder: a commit is visible only a moment after its last write
    std::vector<uint32_t> clients_ = {};  // who waits for a replay
    Service::State told_ = Service::State::busy;
};

bool joinAsService(Bus &bus, std::optional<Desk> &desk) {
    return bus.join(kServiceModule, [&desk](uint32_t command, std::string_view data) {
        return desk ? desk->handle(command, data) : -1;
    });
}

Service::State replayHere(const std::string &file, Bus &bus, std::optional<Desk> &desk) {
    const auto end = Clock::now() + kReplayTime;
    std::ostringstream nowhere;
    Report quiet(false, nowhere, nowhere);
    desk.emplace(file, bus, quiet);
    Service::State state = desk->look();
    while (!Service::isFinal(state) && Clock::now() < end) {
        desk->wait();
        state = desk->look();
    }
    return state;
}

Service::State askService(const std::string &file, Bus &bus) {
    auto state = Service::State::busy;
    const auto listen = [&state](uint32_t command, std::string_view data) {
        const auto told = fromData<Service::State>(data);
        state = command == kReplayState && told ? *told : state;
        return 0;
    };
    const uint32_t client = bus.joinAsClient(listen);
    const auto service = bus.connect(kServiceModule);
    Order order = orderFor(file);
    order.client = client;
    switch (bus.call(kServiceModule, kReplay, asData(order))) {
        case kAccepted:
            break;
        case kOtherDatabase:
            throw Failure("the service that runs does not serve " + file);
        default:
            throw Failure("the service that runs does not answer");
    }
    const auto end = Clock::now() + kReplayTime;
    for (auto now = Clock::now(); now < end; now = Clock::now()) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - now);
        std::array<pollfd, 2> watched = {
            {{bus.descriptor(), POLLIN, 0}, {service ? service->get() : -1, POLLIN, 0}}};
        if (watched[0].fd != -1) {
            poll(watched.data(), watched.size(), static_cast<int>(left.count()));
        }
        bus.listen(watched[0].fd != -1 ? std::chrono::milliseconds(0) : left);
        if (Service::isFinal(state)) {
            break;
        }
        if (watched[1].revents != 0 && watched[0].revents == 0) {
            throw Failure("the service has ended before the relay had all servers");
        }
    }
    return state;
}

}  // namespace

void serve(const std::string &file, Report &report) {
    const sigset_t signals = handleSignals();
    Bus bus;
    std::optional<Desk> desk;
    if (!joinAsService(bus, desk)) {
        throw Failure("cannot register as module " + std::to_string(kServiceModule) +
                      " of the bus; another service runs already?");
    }
    desk.emplace(file, bus, report);
    report.event("service", "serves " + file);
    bool managerKnows = false;
    while (ends == 0) {
        blocked(SIG_UNBLOCK, {SIGTERM, SIGINT});
        desk->look();
        blocked(SIG_BLOCK, {SIGTERM, SIGINT});
        if (!std::exchange(managerKnows, true)) {
            lanyard::notifyManager(("READY=1\nSTATUS=serves " + file).c_str());
        }
        if (ends == 0) {
            desk->wait(&signals);
        }
        if (std::exchange(looksAgain, 0) != 0) {
            lanyard::notifyReloading();
            managerKnows = false;
            report.event("service", "reads the table again");
            desk->lookAgain();
        }
    }
    lanyard::notifyManager("STOPPING=1");
    report.event("service", "ends");
}

void replay(const std::string &file, const Report &report) {
    Database::open(file);
    Bus bus;
    std::optional<Desk> desk;
    switch (joinAsService(bus, desk) ? replayHere(file, bus, desk) : askService(file, bus)) {
        case Service::State::upToDate:
            report.done("the relay has all servers");
            break;
        case Service::State::none:
            throw Failure("no relay answers on the bus");
        case Service::State::failed:
            throw Failure("the relay refuses change notices or stopped answering; does it read " +
                          file + "?");
        case Service::State::restarting:
            throw Failure(
                "the relay was told to end and is not there again; it gets all servers "
                "once it is started");
        default:
            throw Failure("the relay does not listen; it gets all servers once it does");
    }
}

}  // namespace lanyardctl
