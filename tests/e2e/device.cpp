#include "tests/e2e/device.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <future>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/e2e/virtual_wire.h"
#include "tests/interop/wait_until.h"

namespace lanyard::test {
namespace {

namespace fs = std::filesystem;

constexpr const char *kRelayTask = "tRadEap";
constexpr const char *kAuthenticatorTask = "pnac-wired";

std::string hostName() {
    std::array<char, 256> name = {};
    gethostname(name.data(), name.size() - 1);
    return name.data();
}

// The process of that name. This process's namespace has no others of it, but the leak checker of a
// relay that ends forks a helper, which has its name too and may outlive it; a daemon leads its
// session.
std::optional<pid_t> findTask(const std::string &name, bool isDaemon) {
    for (const auto &entry : fs::directory_iterator("/proc")) {
        std::ifstream file(entry.path() / "comm");
        std::string comm;
        if (std::getline(file, comm) && comm == name) {
            const pid_t pid = std::stoi(entry.path().filename());
            if (!isDaemon || getsid(pid) == pid) {
                return pid;
            }
        }
    }
    return std::nullopt;
}

}  // namespace

const char *const Device::kRelay = LANYARD_RADEAPD;

Device::Device() : database_((root_.path() / "var/lib/lanyard/config.db").string()) {
    // The address that a request carries, where the resolver does not know this machine's name.
    root_.write("var/hosts", "127.0.0.1 " + hostName() + "\n");
    root_.write("log/programs", "");
    fs::create_directories(root_.path() / "nexa2.0/etc");
    fs::copy_file(LANYARD_DICTIONARY, root_.path() / "nexa2.0/etc/radius.dict");
    db({"init"});
}

Device::~Device() {
    if (relay_ > 0) {
        kill(relay_, SIGKILL);
        waitpid(relay_, nullptr, 0);
    }
}

std::vector<std::string> Device::settings(const std::string &log) const {
    const std::string folder = (root_.path() / "log").string();
    const char *options = std::getenv("ASAN_OPTIONS");
    return {"PAL_ROOT=" + root_.path().string(), "PAL_DEBUG_LEVELS=28",
            "PAL_DEBUG_FILE=" + folder + "/" + log,
            std::string("ASAN_OPTIONS=") + (options != nullptr ? options : "") +
                ":log_path=" + folder + "/sanitizer"};
}

void Device::db(const std::vector<std::string> &arguments) {
    std::vector<std::string> command = {LANYARD_LANYARDCTL, "db"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    auto run = std::async(std::launch::async, runProgram, command, settings("programs"));
    while (run.wait_for(std::chrono::milliseconds(2)) != std::future_status::ready) {
        superviseRelay();
    }
    const ProgramResult result = run.get();
    if (result.status != 0) {
        throw std::runtime_error("lanyardctl db " + arguments.at(0) + ": " + result.out +
                                 result.err);
    }
}

void Device::addServer(const std::string &host, uint16_t port, const std::string &secret) {
    db({"add", host, "--port", std::to_string(port), "--secret", secret, "--timeout", "1",
        "--retries", "0"});
}

void Device::startService() {
    service_.emplace(std::vector<std::string>{LANYARD_LANYARDCTL, "db", "serve"},
                     settings("service"), root_.path() / "log/service-events");
    if (!service_->waitForOutput("serves ")) {
        throw std::runtime_error("lanyardctl db serve: " + service_->output());
    }
}

void Device::change(const std::vector<std::string> &arguments) {
    const size_t before = service_->output().size();
    db(arguments);
    if (!waitUntil(
            [&] { return service_->output().find("relay: has ", before) != std::string::npos; })) {
        throw std::runtime_error("the relay does not get it: " + service_->output());
    }
}

void Device::awaitRelay() {
    if (!waitUntil([&] {
            superviseRelay();
            return service_->output().find("relay: has ") != std::string::npos;
        })) {
        throw std::runtime_error("the relay does not get the servers: " + service_->output());
    }
}

// The service and `db replay` tell a relay to end when they do not know what it holds.
void Device::superviseRelay() {
    if (relay_ > 0 && waitpid(relay_, nullptr, WNOHANG) == relay_) {
        relay_ = -1;
        startRelay(relayProgram_);
    }
}

void Device::startRelay(const std::string &program) {
    relayProgram_ = program;
    std::vector<std::string> command = {program, "-d", database_};
    command.insert(command.end(), relayOptions_.begin(), relayOptions_.end());
    const ProgramResult result = runProgram(command, settings("relay"));
    std::optional<pid_t> task;
    if (result.status != 0 || !waitUntil([&] {
            task = findTask(kRelayTask, true);
            return task.has_value();
        })) {
        throw std::runtime_error(program + " does not start: " + result.err + logs());
    }
    relay_ = *task;
}

std::chrono::milliseconds Device::endRelay(int signal) {
    const auto asked = std::chrono::steady_clock::now();
    int status = 0;
    kill(relay_, signal);
    if (!waitUntil([&] { return waitpid(relay_, &status, WNOHANG) == relay_; })) {
        throw std::runtime_error("radeapd does not end");
    }
    relay_ = -1;
    if (signal == SIGTERM && status != 0) {
        wrong_ += "radeapd does not end well\n";
    }
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                 asked);
}

void Device::runAuthenticator(std::vector<std::string> command,
                              const std::vector<std::string> &options,
                              const std::vector<std::string> &variables) {
    command.insert(command.end(), {LANYARD_PNAC_WIRED, "--json", "--show-keys"});
    command.insert(command.end(), options.begin(), options.end());
    command.emplace_back(VirtualWire::kPort);
    authenticator_.reset();
    std::vector<std::string> environment = settings("authenticator");
    environment.insert(environment.end(), variables.begin(), variables.end());
    authenticator_.emplace(command, environment, root_.path() / "log/events");
}

void Device::startAuthenticator(const std::vector<std::string> &options,
                                const std::vector<std::string> &variables) {
    runAuthenticator({}, options, variables);
    if (!authenticator_->waitForOutput("\"ready\"")) {
        throw std::runtime_error("pnac-wired: " + authenticator_->output());
    }
}

void Device::startAuthenticatorAt(const std::string &output,
                                  const std::vector<std::string> &options) {
    runAuthenticator({"/bin/sh", "-c", "exec \"$@\" > '" + output + "'", "sh"}, options);
}

ProgramResult Device::showStatus(const std::vector<std::string> &arguments) const {
    std::vector<std::string> command = {LANYARD_PNAC_WIRED, "status"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return runProgram(command, settings("programs"));
}

nlohmann::json Device::status() const {
    const ProgramResult result = showStatus({"--json"});
    if (result.status != 0) {
        throw std::runtime_error("pnac-wired status: " + result.err);
    }
    return nlohmann::json::parse(result.out);
}

std::string Device::authenticatorsSwitches() const {
    const std::optional<pid_t> process = findTask(kAuthenticatorTask, false);
    if (!process) {
        throw std::runtime_error("pnac-wired does not run: " + authenticator_->output());
    }
    std::ifstream status("/proc/" + std::to_string(*process) + "/status");
    std::string switches;
    for (std::string line; std::getline(status, line);) {
        if (line.find("ctxt_switches") != std::string::npos) {
            switches += line + "\n";
        }
    }
    return switches;
}

std::optional<int> Device::awaitAuthenticatorsEnd() {
    const std::optional<int> status = authenticator_->wait();
    authenticator_.reset();
    return status;
}

std::vector<Event> Device::events() const {
    std::vector<Event> events;
    std::istringstream lines(authenticator_->output());
    // A line without its end is still being written.
    for (std::string line; std::getline(lines, line) && !lines.eof();) {
        events.push_back(Event::parse(line));
    }
    return events;
}

std::optional<Event> Device::waitForEvent(const std::function<bool(const Event &)> &fits) const {
    std::optional<Event> found;
    waitUntil([&] {
        const std::vector<Event> all = events();
        const auto event = std::find_if(all.begin(), all.end(), fits);
        if (event != all.end()) {
            found = *event;
        }
        return found.has_value();
    });
    return found;
}

std::optional<Event> Device::firstEventOf(const std::string &address) const {
    return waitForEvent([&](const Event &event) { return event.value("address", "") == address; });
}

std::string Device::logs() const {
    std::string text;
    for (const auto &entry : fs::directory_iterator(root_.path() / "log")) {
        text += "--- " + entry.path().filename().string() + "\n" +
                root_.read("log/" + entry.path().filename().string());
    }
    return text;
}

std::string Device::stop() {
    const auto end = [this](const char *name, std::optional<RunningProgram> &program) {
        if (program) {
            program->signal(SIGTERM);
            if (program->wait() != 0) {
                wrong_ += std::string(name) + " does not end well\n";
            }
        }
        program.reset();
    };
    end("pnac-wired", authenticator_);
    end("lanyardctl db serve", service_);
    if (relay_ > 0) {
        endRelay(SIGTERM);
    }
    for (const auto &entry : fs::directory_iterator(root_.path() / "log")) {
        const std::string name = entry.path().filename().string();
        if (name.starts_with("sanitizer")) {
            wrong_ += root_.read("log/" + name);
        }
    }
    return wrong_;
}

}  // namespace lanyard::test
