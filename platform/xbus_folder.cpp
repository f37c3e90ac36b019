#include "xbus_folder.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <palcore.h>

#include "root.h"
#include "xbus_message.h"

namespace port::bus {
namespace {

constexpr const char *parentPath = "/run";
constexpr const char *folderPath = "/run/xbus";
constexpr mode_t parentMode = S_IRWXU | S_IRGRP | S_IXGRP | S_IROTH | S_IXOTH;
constexpr mode_t folderMode = S_IRWXU;
constexpr mode_t fileMode = S_IRUSR | S_IWUSR;
constexpr int socketType = SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK;

bool makeFolder(const char *devicePath, mode_t mode) noexcept {
    const RootedPath path(devicePath);
    return path.get() != nullptr && (mkdir(path.get(), mode) == 0 || errno == EEXIST);
}

Descriptor openFolder(const RootedPath &path) noexcept {
    return Descriptor(path.get() == nullptr
                          ? -1
                          : open(path.get(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

using FileName = std::array<char, 24>;

FileName fileName(uint32_t module, const char *suffix) noexcept {
    FileName name{};
    (void)std::snprintf(name.data(), name.size(), "%u%s", module, suffix);
    return name;
}

FileName socketName(uint32_t module) noexcept {
    return fileName(module, "");
}

}  // namespace

bool Folder::prepare() noexcept {
    if (!makeFolder(parentPath, parentMode) || !makeFolder(folderPath, folderMode)) {
        return false;
    }
    const Descriptor folder = openFolder(RootedPath(folderPath));
    struct stat status {};
    if (!folder.isOpen() || fstat(folder.get(), &status) != 0) {
        return false;
    }
    return (status.st_mode & (S_IRWXG | S_IRWXO)) == 0 || fchmod(folder.get(), folderMode) == 0;
}

Folder::Folder() {
    const RootedPath path(folderPath);
    Descriptor folder = openFolder(path);
    struct stat status {};
    if (folder.isOpen() && fstat(folder.get(), &status) == 0) {
        path_ = path.get();
        folder_ = std::move(folder);
        owner_ = status.st_uid;
    }
}

Descriptor Folder::lock(uint32_t module) const noexcept {
    Descriptor file(openat(folder_.get(), fileName(module, ".lock").data(),
                           O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, fileMode));
    if (file.isOpen() && flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK) {
            errno = EADDRINUSE;
        }
        file.reset();
    }
    return file;
}

Descriptor Folder::listen(uint32_t module) const noexcept {
    constexpr int mostAboutToConnect = 4096;
    Descriptor socket(::socket(AF_UNIX, socketType, 0));
    sockaddr_un address{};
    if (!socket.isOpen() || !makeAddress(address, module)) {
        return {};
    }
    remove(module);
    // The socket's file gets the mode that the socket has.
    if (fchmod(socket.get(), fileMode) != 0 ||
        bind(socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
        ::listen(socket.get(), mostAboutToConnect) != 0) {
        socket.reset();
    }
    return socket;
}

void Folder::remove(uint32_t module) const noexcept {
    (void)unlinkat(folder_.get(), socketName(module).data(), 0);
}

Descriptor Folder::connect(uint32_t module) const noexcept {
    Descriptor socket(::socket(AF_UNIX, socketType, 0));
    sockaddr_un address{};
    if (!socket.isOpen() || !makeAddress(address, module)) {
        return {};
    }
    // Room for the largest message, whatever the machine's default; it is a queue's size as well.
    constexpr int queueSize = 2 * static_cast<int>(partMax + partMax);
    (void)setsockopt(socket.get(), SOL_SOCKET, SO_SNDBUF, &queueSize, sizeof queueSize);
    if (::connect(socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) !=
            0 ||
        !isTrusted("xbusIoctl", socket)) {
        socket.reset();
    }
    return socket;
}

Descriptor Folder::accept(const Descriptor &listener) const noexcept {
    Descriptor peer(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (peer.isOpen() && !isTrusted("xbusListen", peer)) {
        peer.reset();
    }
    return peer;
}

bool Folder::isTrusted(const char *function, const Descriptor &peer) const noexcept {
    ucred credentials{};
    socklen_t size = sizeof credentials;
    if (getsockopt(peer.get(), SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) {
        return false;
    }
    if (credentials.uid == owner_ || credentials.uid == 0) {
        return true;
    }
    palModuleDebug(logModule, logError, function, __LINE__, "process %d of user %u is refused\n",
                   credentials.pid, credentials.uid);
    errno = EPERM;
    return false;
}

bool Folder::makeAddress(sockaddr_un &address, uint32_t module) const noexcept {
    address.sun_family = AF_UNIX;
    const auto fits = [](int length) {
        return length > 0 && static_cast<std::size_t>(length) < sizeof address.sun_path;
    };
    const FileName name = socketName(module);
    if (fits(std::snprintf(address.sun_path, sizeof address.sun_path, "%s/%s", path_.c_str(),
                           name.data())) ||
        // Below a long root folder.
        fits(std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d/%s",
                           folder_.get(), name.data()))) {
        return true;
    }
    errno = ENAMETOOLONG;
    return false;
}

}  // namespace port::bus
