// login_bench HOST PORT SECRET COUNT [--threads N] [--method pap|chap|mschap|mschapv2]
// [--device-program]: logs "alice" in, one login after another, against a server that knows her password
// "wonderland". Prints the line of measure.h.
//
// MS-CHAP computes its response in the process; with --device-program the device's program does, which
// has to be where the library looks for it, below $PAL_ROOT.
#include <array>
#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>

#include <lanyard/radius/methods.h>

#include "bench/library.h"
#include "bench/measure.h"

namespace lanyard::bench {

namespace {

constexpr const char *kUser = "alice";
constexpr const char *kPassword = "wonderland";

using LogIn = int (*)();

int logInWithChap() {
    const std::array<uint8_t, RAD_CHAP_CHALLENGE_SIZE> challenge{1, 2, 3};
    std::array<uint8_t, RAD_CHAP_RESPONSE_SIZE> response{};
    radChapRespMake(response.data(), reinterpret_cast<const uint8_t *>(kPassword), 10,
                    challenge.data());
    return radChapAuth(kUser, response.data(), response.size(), challenge.data(), challenge.size());
}

const std::map<std::string, LogIn> kMethods = {
    {"pap", [] { return radAuth(kUser, kPassword); }},
    {"chap", logInWithChap},
    {"mschap", [] { return radMschap(kUser, kPassword); }},
    {"mschapv2", [] { return radMschapv2(kUser, kPassword); }},
};

}  // namespace

}  // namespace lanyard::bench

int main(int argc, char *argv[]) {
    using namespace lanyard::bench;
    CLI::App app("Logs in with the library.", "login_bench");
    Settings settings;
    std::string method = "pap";
    bool usesProgram = false;
    settings.addTo(app);
    app.add_option("--method", method, "of the logins")
        ->check(CLI::IsMember(kMethods))
        ->capture_default_str();
    app.add_flag("--device-program", usesProgram, "computes the responses of MS-CHAP");
    const Library library;
    return measure(
        app, argc, argv, settings,
        [&] {
            radOptionSet(RAD_OPTION_BUILTIN_NT_RESPONSE, usesProgram ? 0 : 1);
            radOptionSet(RAD_OPTION_STANDARD_SHA1, 1);
            library.useServer(settings.host, settings.port, settings.secret);
        },
        [&](Laps &laps) {
            repeat(settings, laps, [logIn = kMethods.at(method)] {
                if (logIn() != 0) {
                    throw std::runtime_error("a login failed");
                }
            });
        });
}
