// The situations that are compared.
#ifndef LANYARD_BENCH_COMPARE_ROWS_H
#define LANYARD_BENCH_COMPARE_ROWS_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "bench/compare/audience.h"
#include "bench/compare/contestants.h"
#include "bench/compare/table.h"
#include "bench/compare/usage.h"
#include "tests/e2e/virtual_wire.h"
#include "tests/interop/real_server.h"

namespace lanyard::bench {

// What all rounds share.
struct Stage {
    Stage();

    // Another server, which knows nothing of the first one's conversations.
    const test::RealServer &second();

    test::VirtualWire wire;
    test::RealServer server{test::RealServer::Eap::kYes};
    Audience audience{wire};

  private:
    std::unique_ptr<test::RealServer> second_;
};

// One round of one side.
class Round {
  public:
    struct Limits {
        std::chrono::duration<double> login{75};  // then it is given up
        std::chrono::duration<double> guessing{10};
        std::chrono::duration<double> attack{60};
        size_t people = 1000;  // the most
    };

    Round(Stage &stage, Side side, Table &table, const Limits &limits, const OwnOptions &options,
          uint32_t seed)
        : stage_(stage),
          side_(side),
          table_(table),
          limits_(limits),
          options_(options),
          seed_(seed) {}

    Stage &stage() { return stage_; }
    Audience &audience() { return stage_.audience; }
    const Limits &limits() const { return limits_; }
    uint32_t seed() const { return seed_; }  // the same for both sides

    // Invites as many as the limit allows, starts the side and lets them in. Returns how many they are.
    size_t begin(const Setup &setup, std::vector<test::Account> accounts);
    // A login each of the first so many.
    std::vector<Login> logIn(size_t count, Until until = Until::kSuccess,
                             const std::function<void()> &meanwhile = {});

    void add(const std::string &figure, std::optional<double> value) {
        table_.add(side_, figure, value);
    }
    void addCount(const std::string &figure, size_t count, size_t all) {
        table_.addCount(side_, figure, count, all);
    }
    // How many were logged in, and the slowest of these.
    void addLogins(const std::vector<Login> &logins);

    // What the side's programs use.
    Usage usage() const { return usageOf(contestant_->programs()); }

    // What the side has said.
    std::string log() const { return contestant_ ? contestant_->log() : ""; }

  private:
    Stage &stage_;
    Side side_;
    Table &table_;
    Limits limits_;
    const OwnOptions &options_;
    uint32_t seed_;
    std::unique_ptr<Contestant> contestant_;
};

struct Row {
    std::string name;
    std::string title;
    std::function<void(Round &)> run;
};
const std::vector<Row> &rows();
// A minute each, and not among those that are compared unless they are asked for.
const std::vector<Row> &attackRows();

// What both have of servers and people.
ServerPlace at(const test::RealServer &server);
test::Account md5(const test::RealServer &server);
test::Account peap(const test::RealServer &server);

}  // namespace lanyard::bench

#endif
