#include "tools/pnac_wired/status_socket.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include "tools/pnac_wired/status.h"

namespace lanyard::pnac {
namespace {

namespace fs = std::filesystem;

constexpr mode_t kFolderMode = 0700;
constexpr mode_t kSocketMode = 0600;
constexpr time_t kPatience = 5;  // seconds for an answer

FileDescriptor openFolder(const std::string &folder) {
    return {open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC), folder};
}

FileDescriptor makeFolder(const std::string &folder) {
    (void)mkdir(fs::path(folder).parent_path().c_str(), 0755);
    (void)mkdir(folder.c_str(), kFolderMode);
    FileDescriptor made = openFolder(folder);
    checked(fchmod(made.get(), kFolderMode), folder);
    return made;
}

FileDescriptor makeSocket() {
    return {socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0), "status socket"};
}

// The address of a socket in an open folder, whose own path may be too long for it.
sockaddr_un addressIn(const FileDescriptor &folder, const std::string &name) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const std::string path = "/proc/self/fd/" + std::to_string(folder.get()) + '/' + name;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    return address;
}

const sockaddr *generic(const sockaddr_un &address) {
    return reinterpret_cast<const sockaddr *>(&address);
}

}  // namespace

std::string statusFolder() {
    const char *root = secure_getenv("PAL_ROOT");
    return std::string(root ? root : "") + "/run/pnac-wired";
}

StatusSocket::StatusSocket(const std::string &folder, const std::string &interface,
                           std::function<std::string()> line)
    : path_(folder + '/' + interface), line_(std::move(line)) {
    const FileDescriptor place = makeFolder(folder);
    FileDescriptor listener = makeSocket();
    const sockaddr_un address = addressIn(place, interface);
    (void)unlinkat(place.get(), interface.c_str(), 0);
    // The socket's file gets the mode that the socket has.
    checked(fchmod(listener.get(), kSocketMode), path_);
    checked(bind(listener.get(), generic(address), sizeof(address)), path_);
    checked(listen(listener.get(), kClientsMax), path_);
    checked(fcntl(listener.get(), F_SETFL, O_NONBLOCK), path_);
    listener_.emplace(std::move(listener));
}

StatusSocket::~StatusSocket() {
    (void)unlink(path_.c_str());
}

void StatusSocket::addTo(std::vector<pollfd> &polled) const {
    if (listener_) {
        polled.push_back({.fd = listener_->get(), .events = POLLIN, .revents = 0});
    }
    for (const Client &client : clients_) {
        polled.push_back({.fd = client.socket.get(), .events = POLLOUT, .revents = 0});
    }
}

void StatusSocket::serve() {
    for (size_t taken = 0; listener_ && taken < kClientsMax; ++taken) {
        const int made = accept4(listener_->get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (made >= 0) {
            if (clients_.size() == kClientsMax) {
                clients_.pop_front();
            }
            clients_.push_back({.socket = FileDescriptor(made, path_), .pending = line_()});
            continue;
        }
        if (errno == EAGAIN) {
            break;
        }
        if (errno != EINTR && errno != ECONNABORTED) {
            // It would stay ready for ever, and the program would never sleep.
            (void)std::fprintf(stderr, "pnac-wired: %s: %s\n", path_.c_str(), std::strerror(errno));
            listener_.reset();
        }
    }
    clients_.remove_if([](Client &client) { return !tell(client); });
}

bool StatusSocket::tell(Client &client) {
    std::string &pending = client.pending;
    const ssize_t sent =
        send(client.socket.get(), pending.data(), pending.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0) {
        return errno == EAGAIN || errno == EINTR;
    }
    pending.erase(0, static_cast<size_t>(sent));
    return !pending.empty();
}

std::vector<std::string> statusInterfaces(const std::string &folder) {
    std::vector<std::string> names;
    std::error_code none;
    for (const auto &entry : fs::directory_iterator(folder, none)) {
        if (entry.is_socket(none)) {
            names.push_back(entry.path().filename());
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::optional<std::string> askStatus(const std::string &folder, const std::string &interface) {
    if (interface.find('/') != std::string::npos || !fs::exists(fs::path(folder) / interface)) {
        return std::nullopt;
    }
    const FileDescriptor place = openFolder(folder);
    const FileDescriptor client = makeSocket();
    const timeval patience = {.tv_sec = kPatience, .tv_usec = 0};
    for (const int wait : {SO_RCVTIMEO, SO_SNDTIMEO}) {
        checked(setsockopt(client.get(), SOL_SOCKET, wait, &patience, sizeof(patience)), interface);
    }
    const sockaddr_un address = addressIn(place, interface);
    if (connect(client.get(), generic(address), sizeof(address)) != 0 && errno == ECONNREFUSED) {
        return std::nullopt;  // the socket of one that was killed
    }
    std::string line;
    std::vector<char> part(65536);
    for (;;) {
        const ssize_t size = recv(client.get(), part.data(), part.size(), 0);
        checked(static_cast<int>(size), interface);
        if (size == 0 || line.size() > 2 * kStatusMax) {
            return line;
        }
        line.append(part.data(), static_cast<size_t>(size));
    }
}

}  // namespace lanyard::pnac
