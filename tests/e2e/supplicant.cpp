#include "tests/e2e/supplicant.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <system_error>
#include <vector>

#include "tests/interop/real_server.h"
#include "tests/interop/wait_until.h"
#include "tools/file_descriptor.h"

namespace lanyard::test {
namespace {

constexpr const char *kProgram = "/sbin/wpa_supplicant";
constexpr int kAnswerLimit = 10000;  // milliseconds

std::string line(const std::string &name, const std::string &value) {
    return name + "=\"" + value + "\"\n";
}

Account account(const std::string &method, const std::string &identity,
                const std::string &password) {
    return "eap=" + method + "\n" + line("identity", identity) +
           (password.empty() ? "" : line("password", password));
}

std::string authority(const RealServer &server) {
    return line("ca_cert", server.certificate("ca.pem").string());
}

// Writes the configuration. Returns the command.
std::vector<std::string> prepare(const TemporaryFolder &folder, const Account &account,
                                 const std::string &interface, Supplicant::Log log) {
    folder.write("supplicant.conf", "ctrl_interface=" + (folder.path() / "control").string() +
                                        "\nap_scan=0\nnetwork={\nkey_mgmt=IEEE8021X\n" +
                                        "eapol_flags=0\n" + account + "}\n");
    std::vector<std::string> command = {
        kProgram, "-D", "wired", "-i", interface, "-c", folder.path() / "supplicant.conf"};
    if (log == Supplicant::Log::kAll) {
        // -K shows keys, and -dd the states that are waited for.
        command.insert(command.end(), {"-K", "-dd"});
    }
    return command;
}

sockaddr_un addressOf(const std::filesystem::path &path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.native().size() >= sizeof address.sun_path) {
        throw std::runtime_error("too long for a socket: " + path.string());
    }
    std::memcpy(address.sun_path, path.c_str(), path.native().size());
    return address;
}

}  // namespace

Account md5Account(const std::string &identity, const std::string &password) {
    return account("MD5", identity, password);
}

Account peapAccount(const RealServer &server, const std::string &identity,
                    const std::string &password) {
    return account("PEAP", identity, password) + authority(server) +
           line("phase2", "auth=MSCHAPV2");
}

Account ttlsAccount(const RealServer &server, const std::string &identity,
                    const std::string &password) {
    return account("TTLS", identity, password) + authority(server) + line("phase2", "auth=PAP");
}

Account tlsAccount(const RealServer &server, const std::string &identity,
                   const std::string &certificate) {
    return account("TLS", identity, "") + authority(server) +
           line("client_cert", server.certificate(certificate + ".pem").string()) +
           line("private_key", server.certificate(certificate + ".key").string());
}

Supplicant::Supplicant(const VirtualWire &wire, const Account &account,
                       const std::string &interface, Log log)
    : interface_(interface), program_([&] {
          const VirtualWire::SupplicantsSide side(wire);
          return RunningProgram(prepare(folder_, account, interface, log), {},
                                folder_.path() / "log");
      }()) {}

void Supplicant::awaitReady() const {
    if (!program_.waitForOutput("EAPOL: SUPP_PAE entering state CONNECTING")) {
        throw std::runtime_error("the supplicant does not start:\n" + log());
    }
}

void Supplicant::start() {
    command("LOGON");
}

void Supplicant::logOff() {
    command("LOGOFF");
}

bool Supplicant::asksForPassword() const {
    return program_.waitForOutput("CTRL-REQ-PASSWORD-0:");
}

void Supplicant::givePassword(const std::string &password) {
    command("CTRL-RSP-PASSWORD-0:" + password);
}

std::string Supplicant::firstResult() const {
    const std::string title = "CTRL-EVENT-EAP-";
    std::string result;
    waitUntil([&] {
        const std::string all = log();
        for (const char *candidate : {"SUCCESS", "FAILURE"}) {
            if (result.empty() && all.find(title + candidate) != std::string::npos) {
                result = candidate;
            }
        }
        return !result.empty();
    });
    return result;
}

std::string Supplicant::sessionKey() const {
    constexpr std::string_view kTitle = "Derived key - hexdump(len=64):";
    const std::string all = log();
    const size_t at = all.rfind(kTitle);
    std::string key;
    if (at != std::string::npos) {
        key = all.substr(at + kTitle.size(), all.find('\n', at) - at - kTitle.size());
        std::erase(key, ' ');
    }
    return key;
}

void Supplicant::command(const std::string &text) {
    const FileDescriptor client(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket");
    const std::filesystem::path ownPath = folder_.path() / "client";
    const sockaddr_un own = addressOf(ownPath);
    const sockaddr_un its = addressOf(folder_.path() / "control" / interface_);
    std::array<char, 64> answer = {};
    pollfd watched = {client.get(), POLLIN, 0};
    const bool asked =
        bind(client.get(), reinterpret_cast<const sockaddr *>(&own), sizeof own) == 0 &&
        sendto(client.get(), text.data(), text.size(), 0, reinterpret_cast<const sockaddr *>(&its),
               sizeof its) == static_cast<ssize_t>(text.size()) &&
        poll(&watched, 1, kAnswerLimit) == 1;
    const int reason = errno;
    std::filesystem::remove(ownPath);
    if (!asked) {
        throw std::system_error(reason, std::generic_category(), "asking the supplicant: " + text);
    }
    if (recv(client.get(), answer.data(), answer.size(), 0) < 2 ||
        std::string_view(answer.data(), 2) != "OK") {
        throw std::runtime_error("the supplicant refuses " + text);
    }
}

}  // namespace lanyard::test
