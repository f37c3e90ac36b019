#include "load.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <memory>
#include <numeric>
#include <optional>
#include <vector>

#include <lanyard/radius/engine.h>
#include <lanyard/radius/error.h>
#include <lanyard/radius/loop.h>

#include "failure.h"
#include "table.h"

namespace lanyardctl {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kGlance = 100;  // milliseconds

volatile std::sig_atomic_t endWanted = 0;

// Has SIGINT and SIGTERM wish for the end, while this lives.
class EndOnSignal {
  public:
    EndOnSignal() {
        endWanted = 0;
        struct sigaction action {};
        action.sa_handler = [](int) { endWanted = 1; };
        sigaction(SIGINT, &action, &interrupt_);
        sigaction(SIGTERM, &action, &terminate_);
    }
    ~EndOnSignal() {
        sigaction(SIGINT, &interrupt_, nullptr);
        sigaction(SIGTERM, &terminate_, nullptr);
    }
    EndOnSignal(const EndOnSignal &) = delete;
    EndOnSignal &operator=(const EndOnSignal &) = delete;
    EndOnSignal(EndOnSignal &&) = delete;
    EndOnSignal &operator=(EndOnSignal &&) = delete;

  private:
    struct sigaction interrupt_ {};
    struct sigaction terminate_ {};
};

// The reason of a login without a valid answer, in few words: logins are counted by them.
std::string wordsFor(const RadLastError *error) {
    if (!error) {
        return "not sent";
    }
    switch (error->reason) {
        case ECONNREFUSED:
            return "port closed";
        case RAD_REASON_NO_REPLY:
            return "no answer";
        case RAD_REASON_REPLY_AUTHENTICATOR:
        case RAD_REASON_REPLY_SIGNATURE:
            return "bad authenticator";
        case RAD_REASON_REPLY_UNSIGNED:
            return "answer not signed";
        case RAD_REASON_REPLY_SHORT:
        case RAD_REASON_REPLY_LENGTH:
        case RAD_REASON_REPLY_ATTRIBUTES:
        case RAD_REASON_REPLY_ATTRIBUTE:
            return "malformed answer";
        case RAD_REASON_REPLY_IDENTIFIER:
            return "answer to another request";
        case RAD_REASON_NO_MEMORY:
            return "out of memory";
        default:
            return error->reason > 0 ? std::strerror(error->reason) : "not sent";
    }
}

class Load {
  public:
    explicit Load(const LoadPlan &plan) : plan_(plan), lanes_(plan.atOnce, Lane{this, {}}) {
        if (!loop_) {
            throw Failure("out of memory or descriptors");
        }
    }

    LoadFigures run(const std::function<void(const LoadFigures &)> &look) {
        const EndOnSignal signals;
        for (Lane &lane : lanes_) {
            startNext(lane);
        }
        while (inFlight_ > 0 && endWanted == 0 && !refused_) {
            if (radLoopRun(loop_.get(), kGlance) < 0) {
                throw Failure(std::string("waiting for answers failed: ") + std::strerror(errno));
            }
            figures_.seconds = secondsSince(begin_);
            look(figures_);
        }
        if (refused_) {
            throw Failure(shown(refused_) + ": " + kLoginRefused, kRefused);
        }
        figures_.seconds = secondsSince(begin_);
        figures_.waiting = inFlight_;
        return figures_;
    }

  private:
    // One login after the other.
    struct Lane {
        Load *load;
        Clock::time_point start;
    };

    static double secondsSince(Clock::time_point start) {
        return std::chrono::duration<double>(Clock::now() - start).count();
    }

    void startNext(Lane &lane) {
        if (started_ == plan_.logins || endWanted != 0) {
            return;
        }
        const LoadUser &user = plan_.users[static_cast<size_t>(started_ % plan_.users.size())];
        ++started_;
        lane.start = Clock::now();
        if (!startLogin(plan_.method.method, loop_.get(), user.name, user.password.text(), noteEnd,
                        &lane)) {
            refused_ = user.name;
            return;
        }
        ++inFlight_;
    }

    static void noteEnd(void *context, RadRequest * /*request*/, const RadLogin *login) {
        Lane &lane = *static_cast<Lane *>(context);
        --lane.load->inFlight_;
        lane.load->count(login->code, Clock::now() - lane.start);
        lane.load->startNext(lane);
    }

    void count(int code, Clock::duration time) {
        if (code < 0) {
            ++figures_.failures[wordsFor(radLastError())];
            return;
        }
        ++(code == RAD_CODE_ACCESS_ACCEPT      ? figures_.accepted
           : code == RAD_CODE_ACCESS_CHALLENGE ? figures_.challenged
                                               : figures_.rejected);
        figures_.times.add(static_cast<uint64_t>(
            std::chrono::duration_cast<std::chrono::microseconds>(time).count()));
    }

    const LoadPlan &plan_;
    const std::unique_ptr<RadLoop, decltype(&radLoopDestroy)> loop_{radLoopCreate(),
                                                                    radLoopDestroy};
    std::vector<Lane> lanes_;
    uint64_t started_ = 0;
    uint64_t inFlight_ = 0;
    std::optional<std::string> refused_;  // the name of a user
    const Clock::time_point begin_ = Clock::now();
    LoadFigures figures_;
};

}  // namespace

uint64_t LoadFigures::failed() const {
    return std::accumulate(failures.begin(), failures.end(), uint64_t{0},
                           [](uint64_t sum, const auto &failure) { return sum + failure.second; });
}

LoadFigures runLoad(const LoadPlan &plan, const std::function<void(const LoadFigures &)> &look) {
    return Load(plan).run(look);
}

}  // namespace lanyardctl
