// Where a running pnac-wired tells its status: a socket by the interface's name in a folder of its
// user's own. Whoever connects gets one line and the end; nobody has to ask.
#ifndef LANYARD_TOOLS_PNAC_WIRED_STATUS_SOCKET_H
#define LANYARD_TOOLS_PNAC_WIRED_STATUS_SOCKET_H

#include <functional>
#include <list>
#include <optional>
#include <poll.h>
#include <string>
#include <vector>

#include "tools/file_descriptor.h"

namespace lanyard::pnac {

// "/run/pnac-wired", below the folder that stands in for the device's files (PAL_ROOT).
std::string statusFolder();

class StatusSocket {
  public:
    // How many may be told at once. One more takes the place of the one that has been at it longest.
    static constexpr size_t kClientsMax = 4;

    // Makes the folder, and the socket in the place of one that was left. Throws std::system_error.
    StatusSocket(const std::string &folder, const std::string &interface,
                 std::function<std::string()> line);
    ~StatusSocket();
    StatusSocket(const StatusSocket &) = delete;
    StatusSocket &operator=(const StatusSocket &) = delete;

    // Adds what to poll: serve() is due when some of it is ready.
    void addTo(std::vector<pollfd> &polled) const;

    // Readable when somebody connects; -1 when nobody can any more.
    int listener() const { return listener_ ? listener_->get() : -1; }
    // Whether somebody reads.
    bool isServing() const { return !clients_.empty(); }

    // Sees to those who have connected; never waits.
    void serve();

  private:
    struct Client {
        FileDescriptor socket;
        std::string pending;
    };

    // False when all is told, or nobody listens any more.
    static bool tell(Client &client);

    std::string path_;
    std::function<std::string()> line_;
    std::optional<FileDescriptor> listener_;
    std::list<Client> clients_;  // the oldest first
};

// Interfaces that have a socket in the folder, sorted.
std::vector<std::string> statusInterfaces(const std::string &folder);

// What the pnac-wired of an interface tells; nothing when none runs. Throws std::system_error for one
// that does not answer.
std::optional<std::string> askStatus(const std::string &folder, const std::string &interface);

}  // namespace lanyard::pnac

#endif
