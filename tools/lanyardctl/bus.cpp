#include "bus.h"

#include <array>
#include <charconv>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>

#include <lanyard/radius/eap.h>
#include <palcore.h>

#include "database.h"

// A vendor's bus may lack it.
#pragma weak xbusDescriptor

namespace lanyardctl {

namespace {

namespace fs = std::filesystem;
using lanyard::FileDescriptor;
using Clock = std::chrono::steady_clock;

// A call without an answer takes five seconds, and a refusal none.
constexpr std::chrono::seconds kUnanswered{4};

// This project's port of the bus has these files for a module, the service's lock among them. Where a
// vendor's has not, the relay is the task of this name; with the port, such a task may be the relay of
// another root folder.
constexpr const char *kBusFolder = "/run/xbus";
const std::string kRelaySocket = std::to_string(RAD_EAP_MODULE);
const std::string kRelayLock = std::string(kBusFolder) + "/" + kRelaySocket + ".lock";
const std::string kServiceLock =
    std::string(kBusFolder) + "/" + std::to_string(kServiceModule) + ".lock";
constexpr const char *kRelayTask = "tRadEap";

std::optional<FileDescriptor> openPath(const std::string &path) {
    const int fd = palOpen(path.c_str(), O_PATH | O_NOFOLLOW, 0);
    return fd < 0 ? std::nullopt : std::optional<FileDescriptor>(std::in_place, fd, path);
}

std::optional<struct stat> statusOf(const std::optional<FileDescriptor> &file) {
    struct stat status {};
    return file && fstat(file->get(), &status) == 0 ? std::optional(status) : std::nullopt;
}

// A folder as a path without the platform's root, however long that is.
std::string pathOf(const FileDescriptor &folder) {
    return "/proc/self/fd/" + std::to_string(folder.get());
}

// Connects to the relay's socket and closes the own half: no message, only an end that the relay
// finds when it listens next. It closes its half then, which makes this one readable.
std::optional<FileDescriptor> knock() {
    const auto folder = openPath(kBusFolder);
    FileDescriptor connection(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0),
                              "socket");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = folder ? pathOf(*folder) + "/" + kRelaySocket : "";
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    if (connect(connection.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) !=
            0 ||
        shutdown(connection.get(), SHUT_WR) != 0) {
        return std::nullopt;
    }
    return connection;
}

// By its name first: a look at any other file may have to wait for a file server.
bool hasOpen(const fs::path &process, const struct stat &file) {
    const fs::path name = fs::path(kRelayLock).filename();
    std::error_code error;
    for (fs::directory_iterator fd(process / "fd", error), end; !error && fd != end;
         fd.increment(error)) {
        std::error_code gone;
        struct stat status {};
        if (fs::read_symlink(fd->path(), gone).filename() == name &&
            stat(fd->path().c_str(), &status) == 0 && status.st_dev == file.st_dev &&
            status.st_ino == file.st_ino) {
            return true;
        }
    }
    return false;
}

// Tells a process to end if it is one that is meant; its number cannot pass to another one meanwhile.
template <typename IsMeant>
bool endProcess(pid_t pid, const IsMeant &isMeant) {
    const auto opened = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
    if (opened < 0) {
        return false;
    }
    const FileDescriptor process(opened, "pidfd");
    return isMeant() && syscall(SYS_pidfd_send_signal, process.get(), SIGTERM, nullptr, 0) == 0;
}

}  // namespace

Bus::Bus() {
    if (xbusInit() != 0) {
        throw Failure("cannot reach the management bus");
    }
}

Bus::~Bus() {
    context_.reset();
    xbusDeInit();
}

bool Bus::join(uint32_t module, Handler handler) {
    handler_ = std::move(handler);
    const XbusHandler handle = [](void *, void *bus, uint32_t command, void *data, uint32_t length,
                                  void *, uint32_t *) {
        return static_cast<Bus *>(bus)->handler_(
            command, {static_cast<const char *>(data), data ? length : 0});
    };
    context_.reset(xbusRegister(module, XBUS_MODE_HANDLER, handle, this));
    return context_ != nullptr;
}

int Bus::descriptor() const {
    return &xbusDescriptor != nullptr ? xbusDescriptor(context_.get()) : -1;
}

bool Bus::listen(std::chrono::milliseconds time) {
    const std::chrono::microseconds wait = time;
    return xbusListen(context_.get(), static_cast<uint32_t>(wait.count())) == 1;
}

int Bus::call(uint32_t module, uint32_t command, std::string_view data, std::string out) {
    auto length = static_cast<uint32_t>(out.size());
    return xbusIoctl(context_.get(), module, command, data.data(),
                     static_cast<uint32_t>(data.size()), length != 0 ? out.data() : nullptr,
                     &length, XBUS_WAIT, 0, 0);
}

bool Bus::notify(uint32_t module, uint32_t command, std::string_view data) {
    return xbusIoctl(context_.get(), module, command, data.data(),
                     static_cast<uint32_t>(data.size()), nullptr, nullptr, XBUS_NO_WAIT, 0, 0) == 0;
}

// The relay's socket is made when it registers and stays while it becomes a daemon.
std::string BusRelay::run() {
    if (const auto made = statusOf(openPath(kBusFolder + ("/" + kRelaySocket)))) {
        return "socket " + std::to_string(made->st_dev) + ":" + std::to_string(made->st_ino) +
               " of " + std::to_string(made->st_mtim.tv_sec) + "." +
               std::to_string(made->st_mtim.tv_nsec);
    }
    const int task = openPath(kServiceLock) ? -1 : palTaskNameToId(kRelayTask);
    return task == -1 ? "" : "task " + std::to_string(task);
}

// A call would have to wait for the relay, and would stay in its queue when it has waited in vain: a
// busy relay would handle more and more of them. So one is made only when a knock was heard.
bool BusRelay::listens() {
    constexpr int kPatience = 50;  // ms, more than a relay that listens needs
    const int patience = knock_ ? 0 : kPatience;
    if (!knock_ && !heard_) {
        if (auto knocked = knock()) {
            knock_.emplace(std::move(*knocked));
        }
    }
    hear(patience);
    if (knock_) {
        return false;
    }
    heard_ = false;
    // A delete in a table that nobody handles changes nothing.
    RadDbUpdateInfo nothing{};
    nothing.opCode = RAD_DB_DELETE;
    return send(nothing, "") == Answer::done;
}

void BusRelay::hear(int patience) {
    pollfd closed{descriptor(), POLLIN, 0};
    if (knock_ && poll(&closed, 1, patience) > 0) {
        knock_.reset();
        heard_ = true;
    }
}

Relay::Answer BusRelay::send(const RadDbUpdateInfo &notice, std::string oldValues) {
    const auto start = Clock::now();
    const std::string_view record(reinterpret_cast<const char *>(&notice), sizeof(notice));
    if (bus_.call(RAD_EAP_MODULE, RAD_EAP_CMD_DB_UPDATE, record, std::move(oldValues)) == 0) {
        return Answer::done;
    }
    return Clock::now() - start < kUnanswered ? Answer::refused : Answer::unknown;
}

// The credentials of the relay's socket, and the owner that /proc/locks has for its lock, are those
// of the process that registered it, which has ended since when the relay became a daemon. So it is
// looked for who has the lock's file open.
bool BusRelay::end() {
    if (!openPath(kServiceLock)) {
        const int task = palTaskNameToId(kRelayTask);
        return task != -1 && endProcess(task, [&] { return palTaskNameToId(kRelayTask) == task; });
    }
    const auto lock = statusOf(openPath(kRelayLock));
    if (!lock) {
        return false;
    }
    bool told = false;
    std::error_code error;
    for (const auto &process : fs::directory_iterator("/proc", error)) {
        const std::string name = process.path().filename();
        pid_t pid = 0;
        const char *last = name.data() + name.size();
        if (std::from_chars(name.data(), last, pid).ptr == last && pid != getpid() &&
            hasOpen(process.path(), *lock)) {
            told = endProcess(pid, [&] { return hasOpen(process.path(), *lock); }) || told;
        }
    }
    return told;
}

FolderWatch::FolderWatch(const std::string &file)
    : inotify_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK), "inotify") {
    constexpr uint32_t kEvents = IN_CREATE | IN_MODIFY | IN_DELETE;
    if (const auto bus = openPath(kBusFolder)) {
        inotify_add_watch(inotify_.get(), pathOf(*bus).c_str(), kEvents);
    }
    inotify_add_watch(inotify_.get(), fs::absolute(file).parent_path().c_str(), kEvents);
}

bool FolderWatch::drain() const {
    std::array<char, 4096> events{};
    bool any = false;
    while (read(inotify_.get(), events.data(), events.size()) > 0) {
        any = true;
    }
    return any;
}

}  // namespace lanyardctl
