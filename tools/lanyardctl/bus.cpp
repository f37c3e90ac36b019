#include "bus.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <lanyard/radius/eap.h>
#include <palcore.h>

#include "database.h"

// A vendor's bus may lack it.
#pragma weak xbusDescriptor
#pragma weak xbusConnect
#pragma weak xbusSend
#pragma weak xbusResult

namespace lanyardctl {

namespace {

namespace fs = std::filesystem;
using lanyard::FileDescriptor;
using Clock = std::chrono::steady_clock;

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

std::optional<struct stat> attributesOf(const std::optional<FileDescriptor> &file) {
    struct stat status {};
    return file && fstat(file->get(), &status) == 0 ? std::optional(status) : std::nullopt;
}

// A folder as a path without the platform's root, however long that is.
std::string pathOf(const FileDescriptor &folder) {
    return "/proc/self/fd/" + std::to_string(folder.get());
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

uint32_t Bus::joinAsClient(const Handler &handler) {
    uint32_t client = kFirstClient;
    while (!join(client, handler)) {
        if (++client > kLastClient) {
            throw Failure("cannot register on the bus");
        }
    }
    return client;
}

int Bus::descriptor() const {
    return &xbusDescriptor != nullptr ? xbusDescriptor(context_.get()) : -1;
}

bool Bus::listen(std::chrono::milliseconds time) {
    const std::chrono::microseconds wait = time;
    return xbusListen(context_.get(), static_cast<uint32_t>(wait.count())) == 1;
}

int Bus::call(uint32_t module, uint32_t command, std::string_view data, std::string *out) {
    auto length = static_cast<uint32_t>(out ? out->size() : 0);
    const int result =
        xbusIoctl(context_.get(), module, command, data.data(), static_cast<uint32_t>(data.size()),
                  length != 0 ? out->data() : nullptr, &length, XBUS_WAIT, 0, 0);
    if (out) {
        out->resize(std::min<size_t>(length, out->size()));
    }
    return result;
}

std::optional<FileDescriptor> Bus::connect(uint32_t module) {
    const int connection = &xbusConnect != nullptr ? xbusConnect(context_.get(), module) : -1;
    return connection < 0 ? std::nullopt
                          : std::optional<FileDescriptor>(std::in_place, connection, "bus");
}

bool Bus::notify(uint32_t module, uint32_t command, std::string_view data) {
    return xbusIoctl(context_.get(), module, command, data.data(),
                     static_cast<uint32_t>(data.size()), nullptr, nullptr, XBUS_NO_WAIT, 0, 0) == 0;
}

// The relay's socket is made when it registers and stays while it becomes a daemon; one that was
// killed leaves it there.
std::string BusRelay::run() {
    listen();
    const auto made = attributesOf(openPath(kBusFolder + ("/" + kRelaySocket)));
    if (!made) {
        const int task = openPath(kServiceLock) ? -1 : palTaskNameToId(kRelayTask);
        return task == -1 ? "" : "task " + std::to_string(task);
    }
    const std::string run =
        "socket " + std::to_string(made->st_dev) + ":" + std::to_string(made->st_ino) + " of " +
        std::to_string(made->st_mtim.tv_sec) + "." + std::to_string(made->st_mtim.tv_nsec);
    return run == ended_ ? "" : run;
}

bool BusRelay::isThere() {
    return &xbusConnect != nullptr ? connection_ || bus_.connect(RAD_EAP_MODULE) : !run().empty();
}

// The connection leads to one process. That it is the run that is meant is seen when it is made: had
// another one made its socket before, that would be there now.
bool BusRelay::queue(const std::string &run, const RadDbUpdateInfo &notice, std::string oldValues) {
    if (&xbusSend == nullptr) {
        answer_ = call(notice, std::move(oldValues));
        return true;
    }
    if (!connection_ || run != run_) {
        connection_.reset();
        auto connection = bus_.connect(RAD_EAP_MODULE);
        if (!connection || this->run() != run) {
            return false;
        }
        connection_.emplace(std::move(*connection));
        run_ = run;
    }
    const auto length = static_cast<uint32_t>(oldValues.size());
    answer_ = Answer::awaited;
    return xbusSend(connection_->get(), RAD_EAP_CMD_DB_UPDATE, &notice, sizeof(notice),
                    length != 0 ? oldValues.data() : nullptr, length) == 0;
}

Relay::Answer BusRelay::answer(std::chrono::milliseconds patience) {
    pollfd connection{descriptor(), POLLIN, 0};
    poll(&connection, 1, connection.fd == -1 ? 0 : static_cast<int>(patience.count()));
    listen();
    return answer_;
}

void BusRelay::listen() {
    int result = 0;
    const int results = connection_ ? xbusResult(connection_->get(), &result) : 0;
    if (results > 0) {
        answer_ = result == 0 ? Answer::done : Answer::refused;
    } else if (results < 0) {
        answer_ = answer_ == Answer::awaited ? Answer::ended : answer_;
        ended_ = run_;
        connection_.reset();
    }
}

// For a bus that has no connections: it gives up after five seconds, and a new run of the relay may
// get what was meant for the one before.
Relay::Answer BusRelay::call(const RadDbUpdateInfo &notice, std::string oldValues) {
    constexpr std::chrono::seconds kUnanswered{4};  // a refusal takes no time
    const auto start = Clock::now();
    const std::string_view record(reinterpret_cast<const char *>(&notice), sizeof(notice));
    if (bus_.call(RAD_EAP_MODULE, RAD_EAP_CMD_DB_UPDATE, record, &oldValues) == 0) {
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
    const auto lock = attributesOf(openPath(kRelayLock));
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

FolderWatch::FolderWatch(const std::string &file) {
    constexpr uint32_t kEvents = IN_CREATE | IN_MODIFY | IN_DELETE;
    const int inotify = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    if (inotify < 0) {
        return;
    }
    inotify_.emplace(inotify, "inotify");
    if (const auto bus = openPath(kBusFolder)) {
        inotify_add_watch(inotify, pathOf(*bus).c_str(), kEvents);
    }
    inotify_add_watch(inotify, fs::absolute(file).parent_path().c_str(), kEvents);
}

bool FolderWatch::drain() const {
    std::array<char, 4096> events{};
    bool any = false;
    while (inotify_ && read(inotify_->get(), events.data(), events.size()) > 0) {
        any = true;
    }
    return any;
}

}  // namespace lanyardctl
