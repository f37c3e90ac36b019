// The library of this very process in the place of the relay's: it takes notices as the relay does,
// from the same database file, and can fail in all the ways in which a process can.
#ifndef LANYARD_TESTS_LANYARDCTL_LIBRARY_RELAY_H
#define LANYARD_TESTS_LANYARDCTL_LIBRARY_RELAY_H

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/frame.h>
#include <lanyard/radius/mgmt.h>

#include "tools/lanyardctl/relay.h"
#include "tools/lanyardctl/service.h"

namespace lanyard::test {

class LibraryRelay : public lanyardctl::Relay {
  public:
    enum class Fault {
        none,
        lost,             // the notice is lost
        unanswered,       // the relay handles it, and the answer is lost
        refused,          // the relay cannot read its database
        restarted,        // the relay handles it and starts again before the next one
        restartedBefore,  // it starts again, and the new one handles what was meant for it
    };

    struct Notice {
        int operation;
        int row;
        std::string oldValues;

        bool operator==(const Notice &) const = default;
    };

    explicit LibraryRelay(std::string file) : file_(std::move(file)) { start(); }
    ~LibraryRelay() override { stop(); }
    LibraryRelay(const LibraryRelay &) = delete;
    LibraryRelay &operator=(const LibraryRelay &) = delete;

    void start() {
        radLibInit(nullptr);
        radiusMgmtInit(file_.c_str(), "radEap");
        running_ = true;
        ++run_;
    }
    void stop() {
        running_ = false;
        radiusMgmtDeInit();
        radLibExit();
    }
    void restart() {
        stop();
        start();
    }

    // The fault meets the n-th notice of the table from now on, 0 the next.
    void failAt(Fault fault, int n) {
        fault_ = fault;
        faultAt_ = n;
    }

    // Whether what it gets stays in its queue.
    void setBusy(bool busy) { busy_ = busy; }

    // Whether somebody starts it again when it was told to end.
    void setSupervised(bool supervised) { supervised_ = supervised; }

    std::string run() override { return running_ ? "run " + std::to_string(run_) : ""; }

    bool isThere() override { return running_; }

    bool end() override {
        const bool told = running_;
        if (told) {
            ++ends_;
            stop();
        }
        if (told && supervised_) {
            start();
        }
        return told;
    }
    [[nodiscard]] int ends() const { return ends_; }

    bool queue(const std::string &run, const RadDbUpdateInfo &notice,
               std::string oldValues) override {
        queued_.emplace(Queued{run, notice, std::move(oldValues)});
        return running_;
    }

    Answer answer(std::chrono::milliseconds patience) override {
        if (!queued_ || queued_->run != run()) {
            return std::exchange(queued_, std::nullopt) ? Answer::ended : Answer::unknown;
        }
        if (busy_) {
            return Answer::awaited;
        }
        auto [run, notice, oldValues] = *std::exchange(queued_, std::nullopt);
        const Fault fault = faultAt_-- == 0 ? fault_ : Fault::none;
        if (fault == Fault::restartedBefore) {
            restart();
        }
        notices_.push_back({notice.opCode, notice.rowId, oldValues});
        if (fault == Fault::lost || fault == Fault::refused) {
            return fault == Fault::lost ? Answer::unknown : Answer::refused;
        }
        const bool othersMayWrite = patience.count() == 0;
        change(othersMayWrite, beforeReading);
        const int status = handle(notice, oldValues);
        change(othersMayWrite, afterReading);
        if (fault == Fault::restarted) {
            restart();
        }
        if (fault == Fault::unanswered) {
            return Answer::unknown;
        }
        return status == 0 ? Answer::done : Answer::refused;
    }

    // What somebody does to the database before or after the relay reads the row of a notice that has
    // had to wait.
    std::function<void()> beforeReading;
    std::function<void()> afterReading;

    std::vector<Notice> takeNotices() { return std::exchange(notices_, {}); }

    // The servers in the order in which the relay asks them, as rows of the table.
    static std::vector<lanyardctl::Server> held() {
        std::vector<lanyardctl::Server> servers;
        const auto *slots = static_cast<const RadServer *>(radConfGet(RAD_CONF_AUTH_SERVERS));
        for (int i = 0; slots && i < RAD_SERVERS_MAX; ++i) {
            if (slots[i].host) {
                servers.push_back(
                    {.id = slots[i].rowKey == lanyardctl::kRowKey ? slots[i].rowId : -1,
                     .host = slots[i].host,
                     .port = std::to_string(slots[i].port),
                     .secret = slots[i].secret,
                     .timeout = std::to_string(slots[i].timeout),
                     .retries = std::to_string(slots[i].retries)});
            }
        }
        return servers;
    }

  private:
    struct Queued {
        std::string run;
        RadDbUpdateInfo notice;
        std::string oldValues;
    };

    static void change(bool mayWrite, const std::function<void()> &change) {
        if (mayWrite && change) {
            change();
        }
    }

    static int handle(const RadDbUpdateInfo &notice, std::string &oldValues) {
        return radiusMgmtDBUpdateHandler(&notice, sizeof(notice),
                                         oldValues.empty() ? nullptr : oldValues.data(),
                                         static_cast<uint32_t>(oldValues.size()));
    }

    std::string file_;
    std::optional<Queued> queued_;
    bool running_ = false;
    bool busy_ = false;
    bool supervised_ = true;
    int ends_ = 0;
    int run_ = 0;
    Fault fault_ = Fault::none;
    int faultAt_ = -1;
    std::vector<Notice> notices_;
};

}  // namespace lanyard::test

#endif
