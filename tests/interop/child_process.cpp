#include "tests/interop/child_process.h"

#include <array>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

#include "tests/interop/wait_until.h"
#include "tools/file_descriptor.h"
#include "tools/spawn.h"

namespace lanyard::test {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kLimit{20};

// Reads both pipes to their ends. Returns false when that took longer than the limit.
bool collect(const Pipe &out, const Pipe &err, ProgramResult &result) {
    std::array<pollfd, 2> watched = {
        {{out.readEnd.get(), POLLIN, 0}, {err.readEnd.get(), POLLIN, 0}}};
    const std::array<std::string *, 2> texts = {&result.out, &result.err};
    const auto deadline = Clock::now() + kLimit;
    while (watched[0].fd >= 0 || watched[1].fd >= 0) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0) {
            return false;
        }
        poll(watched.data(), watched.size(), static_cast<int>(left.count()));
        for (size_t i = 0; i < watched.size(); ++i) {
            if (watched[i].fd < 0 || watched[i].revents == 0) {
                continue;
            }
            std::array<char, 4096> buffer;
            const ssize_t count = read(watched[i].fd, buffer.data(), buffer.size());
            if (count > 0) {
                texts[i]->append(buffer.data(), static_cast<size_t>(count));
            } else {
                watched[i].fd = -1;
            }
        }
    }
    return true;
}

// Starts a program with these settings added to this process's environment.
pid_t start(std::vector<std::string> command, std::vector<std::string> settings, int out, int err) {
    // The first of two settings of one name counts.
    for (std::string &inherited : ownEnvironment()) {
        settings.push_back(std::move(inherited));
    }
    return spawn(std::move(command), std::move(settings), {.out = out, .err = err});
}

int exitStatus(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

ProgramResult runProgram(std::vector<std::string> command, std::vector<std::string> settings) {
    Pipe out;
    Pipe err;
    const pid_t pid =
        start(std::move(command), std::move(settings), out.writeEnd.get(), err.writeEnd.get());
    out.writeEnd.reset();
    err.writeEnd.reset();

    ProgramResult result;
    if (!collect(out, err, result)) {
        kill(pid, SIGKILL);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    result.status = exitStatus(status);
    return result;
}

RunningProgram::RunningProgram(std::vector<std::string> command, std::vector<std::string> settings,
                               std::filesystem::path output)
    : output_(std::move(output)) {
    const FileDescriptor file(
        open(output_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600), output_);
    pid_ = start(std::move(command), std::move(settings), file.get(), file.get());
}

RunningProgram::~RunningProgram() {
    if (!status_) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
}

std::string RunningProgram::output() const {
    std::ifstream stream(output_, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

bool RunningProgram::waitForOutput(const std::string &text) const {
    return waitUntil([&] { return output().find(text) != std::string::npos; });
}

void RunningProgram::signal(int number) const {
    kill(pid_, number);
}

std::optional<int> RunningProgram::wait() {
    waitUntil([this] {
        int status = 0;
        if (!status_ && waitpid(pid_, &status, WNOHANG) == pid_) {
            status_ = exitStatus(status);
        }
        return status_.has_value();
    });
    return status_;
}

}  // namespace lanyard::test
