#include "tests/interop/child_process.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "tests/interop/exec_texts.h"
#include "tests/interop/wait_until.h"

namespace lanyard::test {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kLimit{20};

struct Pipe {
    std::array<int, 2> ends = {-1, -1};

    Pipe() {
        if (pipe2(ends.data(), O_CLOEXEC) != 0) {
            throw std::system_error(errno, std::generic_category(), "pipe");
        }
    }
    ~Pipe() {
        close(ends[0]);
        closeWriteEnd();
    }
    Pipe(const Pipe &) = delete;
    Pipe &operator=(const Pipe &) = delete;
    Pipe(Pipe &&) = delete;
    Pipe &operator=(Pipe &&) = delete;

    void closeWriteEnd() {
        if (ends[1] >= 0) {
            close(ends[1]);
            ends[1] = -1;
        }
    }
};

// Reads both pipes to their ends. Returns false when that took longer than the limit.
bool collect(const Pipe &out, const Pipe &err, ProgramResult &result) {
    std::array<pollfd, 2> watched = {{{out.ends[0], POLLIN, 0}, {err.ends[0], POLLIN, 0}}};
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

// Starts a program with its standard output and standard error in these descriptors.
pid_t start(std::vector<std::string> command, std::vector<std::string> settings, int out, int err) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err, STDERR_FILENO);

    const std::vector<char *> argv = pointersTo(command);
    // The first of two settings of one name counts.
    std::vector<char *> environment = pointersTo(settings);
    environment.pop_back();
    for (char **inherited = environ; *inherited != nullptr; ++inherited) {
        environment.push_back(*inherited);
    }
    environment.push_back(nullptr);

    pid_t pid = -1;
    const int reason =
        posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environment.data());
    posix_spawn_file_actions_destroy(&actions);
    if (reason != 0) {
        throw std::system_error(reason, std::generic_category(), command[0]);
    }
    return pid;
}

int exitStatus(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

ProgramResult runProgram(std::vector<std::string> command, std::vector<std::string> settings) {
    Pipe out;
    Pipe err;
    const pid_t pid = start(std::move(command), std::move(settings), out.ends[1], err.ends[1]);
    out.closeWriteEnd();
    err.closeWriteEnd();

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
    const int file =
        open(output_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600);
    if (file < 0) {
        throw std::system_error(errno, std::generic_category(), output_);
    }
    try {
        pid_ = start(std::move(command), std::move(settings), file, file);
    } catch (...) {
        close(file);
        throw;
    }
    close(file);
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
