// The folder of the bus: where modules are found, and who may talk to them.
#ifndef LANYARD_PLATFORM_XBUS_FOLDER_H
#define LANYARD_PLATFORM_XBUS_FOLDER_H

#include <cstdint>
#include <string>
#include <sys/types.h>
#include <sys/un.h>

#include "platform/descriptor.h"

namespace lanyard::port::bus {

// The folder as it was when it was opened, wherever the root folder is moved afterwards.
//
// A module has two files in it: its socket, "8", and "8.lock", which its process keeps locked. The
// lock, not the socket, tells whether the module is there: it survives daemon() and ends with the
// process, however that ends. Lock files are never removed, so that two processes cannot lock two
// different files of one name.
//
// What returns a descriptor returns none on failure, with `errno` set. Sockets never block.
class Folder {
  public:
    // Makes the folder where it is missing, and its owner's alone in any case.
    [[nodiscard]] static bool prepare();

    // Opens the folder; see isOpen().
    Folder();
    bool isOpen() const { return folder_.isOpen(); }

    // Takes a module's number; EADDRINUSE while another process or context has it.
    [[nodiscard]] Descriptor lock(uint32_t module) const;

    // A module's listening socket, in the place of one that a dead process left.
    [[nodiscard]] Descriptor listen(uint32_t module) const;

    // Removes a module's socket.
    void remove(uint32_t module) const;

    // Connects to a module; EAGAIN when too many are about to.
    [[nodiscard]] Descriptor connect(uint32_t module) const;

    // The next who has connected. Who is not trusted is refused with an error in the log and EPERM.
    [[nodiscard]] Descriptor accept(const Descriptor &listener) const;

  private:
    bool isTrusted(const Descriptor &peer, const char *function) const;
    sockaddr_un addressOf(uint32_t module) const;

    std::string path_;
    Descriptor folder_;
    uid_t owner_ = 0;
};

}  // namespace lanyard::port::bus

#endif
