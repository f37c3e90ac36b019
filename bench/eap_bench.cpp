// eap_bench [logins] [storm] [rounds] [capacity]: measures the EAP relay, in namespaces of its own,
// with the programs of its build, freeradius and wpa_supplicant. Without arguments all of it. One
// line each:
//
//     login METHOD    from a supplicant's EAPOL-Start to its EAP-Success, on the wire
//     storm METHOD    50 supplicants that answer the same request, to the last EAP-Success
//     round           what the relay adds: bus in to request out, reply in to bus out
//     capacity        conversations that hold a State in the library's own partition
//
// docs/performance.md tells more of how.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "bench/guarded_main.h"
#include "bench/relay_bench.h"
#include "bench/wire_capture.h"
#include "tests/e2e/device.h"
#include "tests/e2e/namespaces.h"
#include "tests/e2e/supplicant.h"
#include "tests/e2e/virtual_wire.h"
#include "tests/interop/real_server.h"

namespace lanyard::bench {

namespace {

using test::Device;
using test::RealServer;
using test::Supplicant;
using test::VirtualWire;

constexpr uint8_t kEapolStart = 1;
constexpr int kLogins = 20;
constexpr size_t kSupplicants = 50;
constexpr int kStorms = 3;

// What all logins need, and a device for each measurement.
struct Network {
    VirtualWire wire;
    RealServer server{RealServer::Eap::kYes};
    WireCapture capture{VirtualWire::kPort};
};

class RunningDevice : public Device {
  public:
    explicit RunningDevice(const RealServer &server) {
        addServer("127.0.0.1", server.eapPort(), server.secret());
        startRelay();
        db({"replay"});
    }
};

struct Method {
    const char *name;
    std::function<test::Account(const RealServer &)> account;
};
const std::array<Method, 4> kMethods = {{
    {"md5", [](const RealServer &) { return test::md5Account("alice", "wonderland"); }},
    {"tls", [](const RealServer &server) { return test::tlsAccount(server, "alice"); }},
    {"peap",
     [](const RealServer &server) { return test::peapAccount(server, "alice", "wonderland"); }},
    {"ttls",
     [](const RealServer &server) { return test::ttlsAccount(server, "alice", "wonderland"); }},
}};

bool isSuccess(const EapolFrame &frame) {
    return frame.code == static_cast<uint8_t>(EapCode::kSuccess);
}

void require(bool done, const std::string &what) {
    if (!done) {
        throw std::runtime_error(what);
    }
}

// Seconds from the first frame that one function wants to the last that the other does.
template <typename First, typename Last>
double span(const std::vector<EapolFrame> &frames, First isFirst, Last isLast) {
    const auto first = std::find_if(frames.begin(), frames.end(), isFirst);
    const auto last = std::find_if(frames.rbegin(), frames.rend(), isLast);
    require(first != frames.end() && last != frames.rend(), "frames are missing");
    return (last->at - first->at).count();
}

void measureLogins(Network &network, const Method &method) {
    RunningDevice device(network.server);
    device.startAuthenticator();
    std::vector<double> times;
    for (int i = 0; i < kLogins; ++i) {
        Supplicant supplicant(network.wire, method.account(network.server));
        supplicant.awaitReady();
        network.capture.frames();
        supplicant.start();
        require(supplicant.succeeds(), std::string("a login fails: ") + method.name);
        times.push_back(span(
            network.capture.frames(),
            [](const EapolFrame &frame) { return frame.type == kEapolStart; }, isSuccess));
    }
    std::sort(times.begin(), times.end());
    std::printf("login %s n=%d median-ms=%.2f min-ms=%.2f max-ms=%.2f\n", method.name, kLogins,
                (times[kLogins / 2 - 1] + times[kLogins / 2]) / 2 * 1e3, times.front() * 1e3,
                times.back() * 1e3);
}

void measureStorm(Network &network, const Method &method) {
    RunningDevice device(network.server);
    std::vector<std::unique_ptr<Supplicant>> supplicants;
    for (const auto &station : network.wire.stations(kSupplicants)) {
        supplicants.push_back(std::make_unique<Supplicant>(
            network.wire, method.account(network.server), station.interface));
    }
    for (const auto &supplicant : supplicants) {
        supplicant->awaitReady();
    }
    network.capture.frames();
    device.startAuthenticator();
    for (const auto &supplicant : supplicants) {
        require(supplicant->succeeds(), std::string("a login fails: ") + method.name);
    }
    const auto frames = network.capture.frames();
    require(
        static_cast<size_t>(std::count_if(frames.begin(), frames.end(), isSuccess)) == kSupplicants,
        "not one success each");
    const double seconds = span(
        frames, [](const EapolFrame &frame) { return frame.destination == pnac::kPaeGroup; },
        isSuccess);
    std::printf("storm %s supplicants=%zu seconds=%.3f logins-a-second=%.0f\n", method.name,
                kSupplicants, seconds, static_cast<double>(kSupplicants) / seconds);
}

void measureAll(Network &network, const std::function<void(Network &, const Method &)> &measure,
                int times) {
    for (const Method &method : kMethods) {
        for (int i = 0; i < times; ++i) {
            measure(network, method);
        }
    }
}

int run(int argc, char *argv[]) {
    const std::map<std::string_view, std::function<void(Network &)>> parts = {
        {"logins", [](Network &network) { measureAll(network, measureLogins, 1); }},
        {"storm", [](Network &network) { measureAll(network, measureStorm, kStorms); }},
        {"rounds", [](Network &) { measureRounds(); }},
        {"capacity", [](Network &) { measureCapacity(); }},
    };
    std::vector<std::string_view> wanted(argv + 1, argv + argc);
    if (wanted.empty()) {
        wanted = {"logins", "storm", "rounds", "capacity"};
    }
    for (const auto part : wanted) {
        if (!parts.contains(part)) {
            (void)std::fprintf(stderr, "Usage: %s [logins] [storm] [rounds] [capacity]\n", argv[0]);
            return EXIT_FAILURE;
        }
    }
    test::enterOwnNamespaces();
    (void)std::setvbuf(stdout, nullptr, _IOLBF, 0);
    Network network;
    for (const auto part : wanted) {
        parts.at(part)(network);
    }
    return EXIT_SUCCESS;
}

}  // namespace

}  // namespace lanyard::bench

int main(int argc, char *argv[]) {
    return lanyard::bench::guardedMain(lanyard::bench::run, argc, argv);
}
