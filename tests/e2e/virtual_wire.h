// An Ethernet cable between two network namespaces: on its one end the authenticator, on its other
// one the supplicants.
#ifndef LANYARD_TESTS_E2E_VIRTUAL_WIRE_H
#define LANYARD_TESTS_E2E_VIRTUAL_WIRE_H

#include <string>
#include <vector>

#include "tools/file_descriptor.h"

namespace lanyard::test {

// The calling thread's network namespace gets the authenticator's end, a new one the other.
class VirtualWire {
  public:
    // Names of the two ends.
    static constexpr const char *kPort = "port";
    static constexpr const char *kUser = "user";
    // Address of the supplicants' end.
    static constexpr const char *kUserAddress = "02:00:00:00:00:01";

    // Throws std::runtime_error with what `ip` says.
    VirtualWire();

    // An interface of the supplicants' end, with an address of its own.
    struct Station {
        std::string interface;
        std::string address;
    };
    // The first so many stations; makes those that are not there yet. Throws like the
    // constructor.
    std::vector<Station> stations(size_t count);

    // While it lives, what the thread starts and opens is on the supplicants' side.
    class SupplicantsSide {
      public:
        explicit SupplicantsSide(const VirtualWire &wire);
        ~SupplicantsSide();
        SupplicantsSide(const SupplicantsSide &) = delete;
        SupplicantsSide &operator=(const SupplicantsSide &) = delete;
        SupplicantsSide(SupplicantsSide &&) = delete;
        SupplicantsSide &operator=(SupplicantsSide &&) = delete;

      private:
        const VirtualWire &wire_;
    };

  private:
    FileDescriptor authenticator_;
    FileDescriptor supplicants_;
    std::vector<Station> stations_;
};

}  // namespace lanyard::test

#endif
