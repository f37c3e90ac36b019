#include "tests/e2e/virtual_wire.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sched.h>
#include <stdexcept>
#include <system_error>
#include <unistd.h>

#include "tests/interop/child_process.h"
#include "tests/support/temporary_folder.h"

namespace lanyard::test {
namespace {

constexpr const char *kIp = "/sbin/ip";

FileDescriptor ownNetwork() {
    return {open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC), "/proc/self/ns/net"};
}

void require(bool done) {
    if (!done) {
        throw std::system_error(errno, std::generic_category(), "network namespace");
    }
}

FileDescriptor newNetwork(int own) {
    require(unshare(CLONE_NEWNET) == 0);
    FileDescriptor made = ownNetwork();
    require(setns(own, CLONE_NEWNET) == 0);
    return made;
}

void ip(const std::string &commands) {
    const TemporaryFolder folder;
    folder.write("commands", commands);
    const ProgramResult result =
        runProgram({kIp, "-batch", (folder.path() / "commands").string()}, {});
    if (result.status != 0) {
        throw std::runtime_error("ip: " + result.err + result.out + "\n" + commands);
    }
}

}  // namespace

VirtualWire::VirtualWire()
    : authenticator_(ownNetwork()), supplicants_(newNetwork(authenticator_.get())) {
    const std::string there =
        "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(supplicants_.get());
    ip(std::string("link set lo up\n") + "link add " + kPort + " type veth peer name " + kUser +
       " address " + kUserAddress + " netns " + there + "\nlink set " + kPort + " up\n");
    const SupplicantsSide side(*this);
    ip(std::string("link set ") + kUser + " up\n");
}

std::vector<VirtualWire::Station> VirtualWire::stations(size_t count) {
    std::string commands;
    while (stations_.size() < count) {
        const size_t number = stations_.size();
        std::array<char, 18> address = {};
        (void)std::snprintf(address.data(), address.size(), "02:00:00:01:%02zx:%02zx", number >> 8,
                            number & 0xff);
        const std::string name = "station" + std::to_string(number);
        stations_.push_back({.interface = name, .address = address.data()});
        commands.append("link add link ").append(kUser).append(" name ").append(name);
        commands.append(" address ").append(address.data()).append(" type macvlan mode private\n");
        commands.append("link set ").append(name).append(" up\n");
    }
    const SupplicantsSide side(*this);
    ip(commands);
    return {stations_.begin(), stations_.begin() + static_cast<ptrdiff_t>(count)};
}

VirtualWire::SupplicantsSide::SupplicantsSide(const VirtualWire &wire) : wire_(wire) {
    require(setns(wire.supplicants_.get(), CLONE_NEWNET) == 0);
}

VirtualWire::SupplicantsSide::~SupplicantsSide() {
    // A test that went on at the wrong end would only confuse.
    if (setns(wire_.authenticator_.get(), CLONE_NEWNET) != 0) {
        std::abort();
    }
}

}  // namespace lanyard::test
