// eap_compare [options] [ROW...]: compares the project's authenticator and relay with hostapd, at the same
// servers and with the same supplicants, in namespaces of its own. scripts/compare-eap.sh builds and runs it.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "bench/compare/rows.h"
#include "bench/guarded_main.h"
#include "tests/e2e/namespaces.h"

namespace lanyard::bench {

namespace {

constexpr std::array<const char *, 2> kNames = {"ours", "hostapd"};

struct Options {
    std::vector<std::string> rows = {};
    int rounds = 3;
    bool quick = false;
    bool logs = false;
    double giveUp = Round::Limits().login.count();
    double seconds = Round::Limits().attack.count();
    std::string relay = {};
    std::string authenticator = {};
};

constexpr const char *kAttacks = "attacks";

std::vector<std::string> words(const std::string &text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

Round::Limits limitsOf(const Options &options) {
    Round::Limits limits;
    limits.login = std::chrono::duration<double>(options.giveUp);
    limits.attack = std::chrono::duration<double>(options.seconds);
    if (options.quick) {
        limits = {.login = std::chrono::seconds(4),
                  .guessing = std::chrono::seconds(1),
                  .attack = std::chrono::seconds(1),
                  .people = 3};
    }
    return limits;
}

class Comparison {
  public:
    explicit Comparison(const Options &options)
        : options_(options),
          rounds_(options.quick ? 1 : options.rounds),
          own_({.relay = words(options.relay), .authenticator = words(options.authenticator)}),
          withOther_(otherIsThere()) {}

    // Returns whether every round could be measured.
    bool run() {
        if (!withOther_) {
            (void)std::fprintf(stderr, "hostapd is not installed: one side is not measured\n");
        }
        if (options_.quick) {
            std::printf(
                "--quick: few people, one round, given up early. This measures nothing.\n\n");
        }
        bool all = true;
        for (const Row &row : rows()) {
            all = (!(options_.rows.empty() || isWanted(row.name)) || measure(row)) && all;
        }
        for (const Row &row : attackRows()) {
            all = (!(isWanted(kAttacks) || isWanted(row.name)) || measure(row)) && all;
        }
        return all;
    }

  private:
    bool isWanted(const std::string &name) const {
        return std::find(options_.rows.begin(), options_.rows.end(), name) != options_.rows.end();
    }

    bool measure(const Row &row) {
        const auto begin = std::chrono::steady_clock::now();
        Table table;
        std::string problems;
        for (int round = 0; round < rounds_; ++round) {
            std::array<Side, 2> order = kSides;
            if (round % 2 != 0) {
                std::reverse(order.begin(), order.end());
            }
            for (const Side side : order) {
                if (side == Side::kOurs || withOther_) {
                    problems += measure(row, side, round, table);
                }
            }
        }
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
        std::printf("%s%s\n", table.text(row.name, row.title, {kNames[0], kNames[1]}).c_str(),
                    problems.c_str());
        (void)std::fprintf(stderr, "%s: took %.0f s\n", row.name.c_str(), took.count());
        return problems.empty();
    }

    // Returns what went wrong: a line, or "".
    std::string measure(const Row &row, Side side, int number, Table &table) {
        const char *name = kNames.at(static_cast<size_t>(side));
        (void)std::fprintf(stderr, "%s: round %d of %d, %s\n", row.name.c_str(), number + 1,
                           rounds_, name);
        Round round(stage_, side, table, limitsOf(options_), own_,
                    static_cast<uint32_t>(number) + 1);
        std::string problem;
        try {
            row.run(round);
            if (options_.logs) {
                (void)std::fprintf(stderr, "%s\n", round.log().c_str());
            }
        } catch (const std::exception &reason) {
            problem = std::string("  ") + name + ", round " + std::to_string(number + 1) +
                      ", not measured: " + reason.what() + "\n";
            (void)std::fprintf(stderr, "%s%s\n", problem.c_str(), round.log().c_str());
        }
        stage_.audience.sendHome();
        return problem;
    }

    const Options &options_;
    int rounds_;
    OwnOptions own_;
    bool withOther_;
    Stage stage_;
};

int run(int argc, char *argv[]) {
    Options options;
    bool list = false;
    CLI::App app("Compares pnac-wired and radeapd with hostapd.", "compare-eap");
    std::vector<std::string> names = {kAttacks};
    std::vector<Row> known = rows();
    known.insert(known.end(), attackRows().begin(), attackRows().end());
    for (const Row &row : known) {
        names.push_back(row.name);
    }
    app.add_option(
           "ROW", options.rows,
           "what to compare; everything but the attacks without, all of these with `attacks`")
        ->check(CLI::IsMember(names));
    app.add_option("--rounds", options.rounds, "how often, each side in turn")
        ->check(CLI::Range(1, 1000))
        ->capture_default_str();
    app.add_flag("--quick", options.quick,
                 "one round with few people that gives up early: shows that it runs, and measures "
                 "nothing");
    app.add_option("--give-up", options.giveUp, "seconds after which a login is given up")
        ->check(CLI::Range(1.0, 600.0))
        ->capture_default_str();
    app.add_option("--seconds", options.seconds, "how long each attack lasts")
        ->check(CLI::Range(1.0, 3600.0))
        ->capture_default_str();
    app.add_option("--relay-options", options.relay, "for radeapd, beside its defaults")
        ->envname("OURS_RELAY_OPTIONS");
    app.add_option("--authenticator-options", options.authenticator,
                   "for pnac-wired, beside its defaults")
        ->envname("OURS_AUTHENTICATOR_OPTIONS");
    app.add_flag("--logs", options.logs, "what each side has said, on standard error");
    app.add_flag("--list", list, "the rows");
    CLI11_PARSE(app, argc, argv);
    if (list) {
        for (const Row &row : known) {
            std::printf("%-16s%s\n", row.name.c_str(), row.title.c_str());
        }
        return EXIT_SUCCESS;
    }
    try {
        test::enterOwnNamespaces();
    } catch (const std::exception &refusal) {
        (void)std::fprintf(stderr, "this machine does not allow namespaces: %s\n", refusal.what());
        return EXIT_FAILURE;
    }
    (void)std::setvbuf(stdout, nullptr, _IOLBF, 0);
    return Comparison(options).run() ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

}  // namespace lanyard::bench

int main(int argc, char *argv[]) {
    return lanyard::bench::guardedMain(lanyard::bench::run, argc, argv);
}
