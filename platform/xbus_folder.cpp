#include "platform/xbus_folder.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <palcore.h>

#include "platform/root.h"
#include "platform/xbus_message.h"

namespace lanyard::port::bus {
namespace {

constexpr const char *kFolder = "/run/xbus";
constexpr mode_t kFolderMode = 0700;
constexpr mode_t kFileMode = 0600;

bool makeFolder(const char *devicePath, mode_t mode) {
    const RootedPath path(devicePath);
    return path.get() != nullptr && (mkdir(path.get(), mode) == 0 || errno == EEXIST);
}

Descriptor makeSocket() {
    return Descriptor(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

const sockaddr *generic(const sockaddr_un &address) {
    return reinterpret_cast<const sockaddr *>(&address);
}

}  // namespace

bool Folder::prepare() {
    if (!makeFolder("/run", 0755) || !makeFolder(kFolder, kFolderMode)) {
        return false;
    }
    const Folder folder;
    return folder.isOpen() && fchmod(folder.folder_.get(), kFolderMode) == 0;
}

Folder::Folder() {
    const RootedPath path(kFolder);
    constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    Descriptor folder(path.get() == nullptr ? -1 : open(path.get(), kFlags));
    struct stat status {};
    if (folder.isOpen() && fstat(folder.get(), &status) == 0) {
        path_ = path.get();
        folder_ = std::move(folder);
        owner_ = status.st_uid;
    }
}

Descriptor Folder::lock(uint32_t module) const {
    const std::string name = std::to_string(module) + ".lock";
    Descriptor file(
        openat(folder_.get(), name.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kFileMode));
    if (file.isOpen() && flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
        errno = errno == EWOULDBLOCK ? EADDRINUSE : errno;
        file.reset();
    }
    return file;
}

Descriptor Folder::listen(uint32_t module) const {
    constexpr int kMostAboutToConnect = 4096;
    const sockaddr_un address = addressOf(module);
    Descriptor socket = makeSocket();
    remove(module);
    // The socket's file gets the mode that the socket has.
    if (socket.isOpen() && (fchmod(socket.get(), kFileMode) != 0 ||
                            bind(socket.get(), generic(address), sizeof address) != 0 ||
                            ::listen(socket.get(), kMostAboutToConnect) != 0)) {
        socket.reset();
    }
    return socket;
}

void Folder::remove(uint32_t module) const {
    (void)unlinkat(folder_.get(), std::to_string(module).c_str(), 0);
}

Descriptor Folder::connect(uint32_t module) const {
    const sockaddr_un address = addressOf(module);
    Descriptor socket = makeSocket();
    // Room for the largest message, whatever the machine's default; it is a queue's size as well.
    constexpr int kQueueSize = 2 * static_cast<int>(kPartsMax);
    (void)setsockopt(socket.get(), SOL_SOCKET, SO_SNDBUF, &kQueueSize, sizeof kQueueSize);
    if (socket.isOpen() && (::connect(socket.get(), generic(address), sizeof address) != 0 ||
                            !isTrusted(socket, "xbusIoctl"))) {
        socket.reset();
    }
    return socket;
}

Descriptor Folder::accept(const Descriptor &listener) const {
    Descriptor peer(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (peer.isOpen() && !isTrusted(peer, "xbusListen")) {
        peer.reset();
    }
    return peer;
}

bool Folder::isTrusted(const Descriptor &peer, const char *function) const {
    ucred process{};
    socklen_t size = sizeof process;
    if (getsockopt(peer.get(), SOL_SOCKET, SO_PEERCRED, &process, &size) != 0) {
        return false;
    }
    if (process.uid == owner_ || process.uid == 0) {
        return true;
    }
    palModuleDebug(kLogModule, kLogError, function, __LINE__, "process %d of user %u is refused\n",
                   process.pid, process.uid);
    errno = EPERM;
    return false;
}

sockaddr_un Folder::addressOf(uint32_t module) const {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string name = "/" + std::to_string(module);
    std::string path = path_ + name;
    if (path.size() >= sizeof address.sun_path) {
        path = "/proc/self/fd/" + std::to_string(folder_.get()) + name;  // below a long root folder
    }
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

}  // namespace lanyard::port::bus
