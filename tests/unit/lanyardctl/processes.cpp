#include "tests/unit/lanyardctl/processes.h"

#include <array>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <lanyard/radius/eap.h>

#include "tests/interop/exec_texts.h"
#include "tests/unit/lanyardctl/relay_process.h"
#include "tools/lanyardctl/delivery.h"

namespace lanyard::test {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kPatience{10};
constexpr std::chrono::milliseconds kPause{5};

std::array<int, 2> makePipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    return ends;
}

}  // namespace

BackgroundProcess::BackgroundProcess(std::vector<std::string> command,
                                     std::vector<std::string> settings) {
    const auto toChild = makePipe();
    input_.emplace(toChild[1], "pipe");
    const FileDescriptor childInput(toChild[0], "pipe");
    const auto fromChild = makePipe();
    outputEnd_.emplace(fromChild[0], "pipe");
    const FileDescriptor childOutput(fromChild[1], "pipe");

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, childInput.get(), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, childOutput.get(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, childOutput.get(), STDERR_FILENO);
    const std::vector<char *> argv = pointersTo(command);
    std::vector<char *> environment = pointersTo(settings);
    environment.pop_back();
    for (char **inherited = environ; *inherited != nullptr; ++inherited) {
        environment.push_back(*inherited);
    }
    environment.push_back(nullptr);
    const int reason =
        posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environment.data());
    posix_spawn_file_actions_destroy(&actions);
    if (reason != 0) {
        throw std::system_error(reason, std::generic_category(), command[0]);
    }
}

BackgroundProcess::~BackgroundProcess() {
    if (!status_) {
        kill(pid_, SIGKILL);
        int status = 0;
        waitpid(pid_, &status, 0);
    }
}

bool BackgroundProcess::readSome(std::chrono::milliseconds patience) {
    pollfd watched{.fd = outputEnd_->get(), .events = POLLIN, .revents = 0};
    if (poll(&watched, 1, static_cast<int>(patience.count())) <= 0) {
        return false;
    }
    std::array<char, 4096> buffer{};
    const ssize_t count = read(watched.fd, buffer.data(), buffer.size());
    output_.append(buffer.data(), count > 0 ? static_cast<size_t>(count) : 0);
    return count > 0;
}

bool BackgroundProcess::waitForOutput(const std::string &text) {
    const auto end = Clock::now() + kPatience;
    while (output_.find(text) == std::string::npos) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
        if (left.count() <= 0 || !readSome(left)) {
            return false;
        }
    }
    return true;
}

void BackgroundProcess::signal(int number) const {
    kill(pid_, number);
}

void BackgroundProcess::end() {
    input_.reset();
}

std::optional<int> BackgroundProcess::wait() {
    if (!status_) {
        eventually([this] {
            int status = 0;
            while (readSome(std::chrono::milliseconds(0))) {
            }
            if (waitpid(pid_, &status, WNOHANG) == pid_) {
                status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
            }
            return status_.has_value();
        });
        while (status_ && readSome(std::chrono::milliseconds(0))) {
        }
    }
    return status_;
}

bool eventually(const std::function<bool()> &condition) {
    const auto end = Clock::now() + kPatience;
    while (!condition()) {
        if (Clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(kPause);
    }
    return true;
}

RelayViewer::RelayViewer() {
    constexpr uint32_t kModule = 30;
    constexpr uint32_t kRegisterMode = 2;
    const XbusHandler refuse = [](void *, void *, uint32_t, void *, uint32_t, void *, uint32_t *) {
        return -1;
    };
    if (xbusInit() != 0 || !(context_ = xbusRegister(kModule, kRegisterMode, refuse, nullptr))) {
        throw std::runtime_error("no bus");
    }
}

RelayViewer::~RelayViewer() {
    xbusUnRegister(context_);
}

std::optional<RelayServers> RelayViewer::look() {
    std::array<char, 8192> answer{};
    auto length = static_cast<uint32_t>(answer.size());
    if (xbusIoctl(context_, RAD_EAP_MODULE, kTellServers, nullptr, 0, answer.data(), &length, 0, 0,
                  0) != 0) {
        return std::nullopt;
    }
    std::istringstream lines(std::string(answer.data(), length));
    RelayServers held;
    lines >> held.count;
    int rowKey = 0;
    lanyardctl::Server server{.host = "", .port = "", .secret = "", .timeout = "", .retries = ""};
    while (lines >> rowKey >> server.id >> *server.host >> *server.port >> *server.timeout >>
           *server.retries >> *server.secret) {
        held.servers.push_back(server);
        if (rowKey != lanyardctl::kRowKey) {
            held.servers.back().id = -1;
        }
    }
    return held;
}

}  // namespace lanyard::test
