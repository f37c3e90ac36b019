#include "tests/interop/real_server.h"

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include "tests/interop/certificates.h"
#include "tools/file_descriptor.h"
#include "tools/spawn.h"

namespace lanyard::test {
namespace {

using namespace std::chrono_literals;

constexpr const char *kProgram = "/usr/sbin/freeradius";
constexpr const char *kLog = "server.log";
constexpr auto kStartLimit = 10s;
constexpr auto kStopLimit = 5s;
constexpr auto kGlance = 5ms;

std::string randomSecret() {
    std::array<unsigned char, 16> bytes;
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
        throw std::system_error(errno, std::generic_category(), "getrandom");
    }
    std::string secret;
    for (const unsigned char byte : bytes) {
        secret += "0123456789abcdef"[byte >> 4];
        secret += "0123456789abcdef"[byte & 15];
    }
    return secret;
}

// Holds a free UDP port of 127.0.0.1 while others are looked for.
class FreePort {
  public:
    FreePort() : socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "no free port") {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        auto *generic = reinterpret_cast<sockaddr *>(&address);
        checked(bind(socket_.get(), generic, length), "no free port");
        checked(getsockname(socket_.get(), generic, &length), "no free port");
        number_ = ntohs(address.sin_port);
    }

    uint16_t number() const { return number_; }

  private:
    FileDescriptor socket_;
    uint16_t number_ = 0;
};

}  // namespace

RealServer::RealServer(Eap eap) : RealServer(eap, randomSecret()) {}

RealServer::RealServer(Eap eap, std::string secret) : secret_(std::move(secret)) {
    std::vector<const char *> files = {"radiusd.conf", "users", "grants"};
    if (eap == Eap::kYes) {
        files.insert(files.end(), {"eap-methods", "eap-server"});
        writeCertificates(folder_.path());
    }
    for (const char *file : files) {
        const std::filesystem::path copy = folder_.path() / file;
        std::filesystem::copy_file(std::filesystem::path(LANYARD_SERVER_CONFIGURATION) / file,
                                   copy);
        // The server refuses files that everybody may write, as a checkout may have them.
        std::filesystem::permissions(copy, std::filesystem::perms::owner_read);
    }
    // Another process may take a port before the server does.
    for (int tries = 0; tries < 5; ++tries) {
        choosePorts();
        if (start()) {
            return;
        }
    }
    throw std::runtime_error(std::string(kProgram) + " does not start:\n" + log());
}

RealServer::~RealServer() {
    stop();
}

void RealServer::choosePorts() {
    const FreePort auth;
    const FreePort withSignature;
    const FreePort acct;
    const FreePort withEap;
    authPort_ = auth.number();
    signedPort_ = withSignature.number();
    acctPort_ = acct.number();
    eapPort_ = withEap.number();
}

bool RealServer::start() {
    const std::string folder = folder_.path().string();
    const std::string logFile = (folder_.path() / kLog).string();
    std::array<std::string, 6> arguments = {kProgram, "-f", "-l", logFile, "-d", folder};
    std::array<std::string, 6> settings = {
        "LANYARD_SERVER_DIR=" + folder,
        "LANYARD_SERVER_SECRET=" + secret_,
        "LANYARD_AUTH_PORT=" + std::to_string(authPort_),
        "LANYARD_SIGNED_PORT=" + std::to_string(signedPort_),
        "LANYARD_ACCT_PORT=" + std::to_string(acctPort_),
        "LANYARD_EAP_PORT=" + std::to_string(eapPort_),
    };
    const std::vector<char *> argv = pointersTo(arguments);
    const std::vector<char *> environment = pointersTo(settings);

    folder_.write(kLog, "");
    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ < 0) {
        throw std::system_error(errno, std::generic_category(), "fork");
    }
    if (pid_ == 0) {
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        // The parent may have died before the request was made.
        if (prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 && getppid() == parent) {
            execve(kProgram, argv.data(), environment.data());
        }
        _exit(127);
    }
    if (waitUntilReady()) {
        return true;
    }
    stop();
    return false;
}

bool RealServer::waitUntilReady() {
    const auto deadline = std::chrono::steady_clock::now() + kStartLimit;
    while (std::chrono::steady_clock::now() < deadline) {
        if (log().find("Ready to process requests") != std::string::npos) {
            return true;
        }
        if (waitpid(pid_, nullptr, WNOHANG) == pid_) {
            pid_ = -1;
            return false;
        }
        std::this_thread::sleep_for(kGlance);
    }
    return false;
}

void RealServer::stop() {
    if (pid_ < 0) {
        return;
    }
    ::kill(pid_, SIGTERM);
    const auto deadline = std::chrono::steady_clock::now() + kStopLimit;
    while (waitpid(pid_, nullptr, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() >= deadline) {
            ::kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
            break;
        }
        std::this_thread::sleep_for(kGlance);
    }
    pid_ = -1;
}

void RealServer::kill() {
    ::kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
}

void RealServer::startAgain() {
    if (!start()) {
        throw std::runtime_error(std::string(kProgram) + " does not start again:\n" + log());
    }
}

std::string RealServer::accessRequests() const {
    return folder_.read("access-requests");
}

std::string RealServer::accountingRecords() const {
    return folder_.read("accounting");
}

std::string RealServer::log() const {
    return folder_.read(kLog);
}

}  // namespace lanyard::test
