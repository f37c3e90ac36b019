// loop_bench HOST PORT SECRET COUNT [--threads N] [--in-flight N]: logs "alice" in with radAuthStart(),
// with as many logins in flight as it is told, against a server that knows her password "wonderland".
// Prints the line of measure.h. Each thread has a loop of its own.
#include <algorithm>
#include <memory>
#include <stdexcept>
#include <vector>

#include <lanyard/radius/loop.h>

#include "bench/library.h"
#include "bench/measure.h"

namespace lanyard::bench {

namespace {

constexpr uint32_t kPartition = 4 << 20;

struct LoopDeleter {
    void operator()(RadLoop *loop) const { radLoopDestroy(loop); }
};

class Gateway {
  public:
    Gateway(size_t count, size_t inFlight, Laps &laps)
        : loop_(radLoopCreate()), toStart_(count), users_(std::min(inFlight, count)), laps_(laps) {}

    void run() {
        for (User &user : users_) {
            user.gateway = this;
            start(user);
        }
        while (radLoopRun(loop_.get(), -1) > 0) {
        }
        if (failed_) {
            throw std::runtime_error("a login failed");
        }
    }

  private:
    // One after another logs in in his place.
    struct User {
        Gateway *gateway = nullptr;
        Clock::time_point started;
    };

    void start(User &user) {
        --toStart_;
        user.started = Clock::now();
        if (!radAuthStart(loop_.get(), "alice", "wonderland", done, &user)) {
            failed_ = true;
        }
    }

    static void done(void *context, RadRequest * /*request*/, const RadLogin *login) {
        User &user = *static_cast<User *>(context);
        Gateway &gateway = *user.gateway;
        gateway.laps_.add(user.started);
        gateway.failed_ = gateway.failed_ || login->result != 0;
        if (gateway.toStart_ > 0 && !gateway.failed_) {
            gateway.start(user);
        }
    }

    std::unique_ptr<RadLoop, LoopDeleter> loop_;
    size_t toStart_;
    bool failed_ = false;  // nothing is thrown through the library
    std::vector<User> users_;
    Laps &laps_;
};

}  // namespace

}  // namespace lanyard::bench

int main(int argc, char *argv[]) {
    using namespace lanyard::bench;
    CLI::App app("Logs in with the library's loop.", "loop_bench");
    Settings settings;
    size_t inFlight = 1;
    settings.addTo(app);
    app.add_option("--in-flight", inFlight, "logins of each thread at a time")
        ->check(CLI::Range(1, 1000))
        ->capture_default_str();
    const Library library(kPartition);
    return measure(
        app, argc, argv, settings,
        [&] { library.useServer(settings.host, settings.port, settings.secret); },
        [&](Laps &laps) { Gateway(settings.count, inFlight, laps).run(); });
}
