#include "tests/interop/fixture.h"

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <netinet/in.h>
#include <palroot.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

#include <lanyard/radius/frame.h>

namespace lanyard::test {

std::unique_ptr<RealServer> Interop::server_;

SilentServer::SilentServer() : socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto *generic = reinterpret_cast<sockaddr *>(&address);
    if (socket_ < 0 || bind(socket_, generic, length) != 0 ||
        getsockname(socket_, generic, &length) != 0) {
        const int reason = errno;
        close(socket_);
        throw std::system_error(reason, std::generic_category(), "silent server");
    }
    port_ = ntohs(address.sin_port);
}

SilentServer::~SilentServer() {
    close(socket_);
}

int SilentServer::packets() const {
    std::array<char, 1> start;
    int count = 0;
    while (recv(socket_, start.data(), start.size(), MSG_DONTWAIT | MSG_TRUNC) > 0) {
        count++;
    }
    return count;
}

void Interop::SetUpTestSuite() {
    server_ = std::make_unique<RealServer>();
}

void Interop::TearDownTestSuite() {
    server_.reset();
}

void Interop::SetUp() {
    std::array<char, 256> hostName = {};
    ASSERT_EQ(gethostname(hostName.data(), hostName.size() - 1), 0);
    // The address that a request carries, where the resolver does not know this machine's name.
    root_.write("var/hosts", std::string("127.0.0.1 ") + hostName.data() + "\n");
    palRootSet(root_.path().c_str());
}

void Interop::TearDown() {
    radLibExit();
    palRootSet(nullptr);
    unsetenv("PAL_ROOT");
}

void Interop::writeConfiguration(const std::string &text) const {
    root_.write("var/radius.conf", text);
}

void Interop::configure(const std::string &text) const {
    writeConfiguration(text);
    ASSERT_EQ(radLibInit(radLibDefConf()), 0);
}

void Interop::installNtResponse() const {
    const std::filesystem::path program = root_.path() / "nexa2.0/bin/orvane_getNTResponse";
    std::filesystem::create_directories(program.parent_path());
    std::filesystem::copy_file(LANYARD_NTRESPONSE, program);
    std::filesystem::create_directory(root_.path() / "tmp");
    ASSERT_EQ(setenv("PAL_ROOT", root_.path().c_str(), 1), 0);
}

std::string Interop::lastRequest() {
    const std::string all = server().accessRequests();
    const size_t before = all.rfind("\n\n", all.size() - 3);
    return before == std::string::npos ? all : all.substr(before + 2);
}

std::string Interop::entry(uint16_t port, const std::string &secret) {
    return "127.0.0.1:" + std::to_string(port) + ":1:0:" + secret;
}

Interop::Written Interop::capture(const std::function<void()> &code) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    code();
    Written written;
    written.out = testing::internal::GetCapturedStdout();
    written.err = testing::internal::GetCapturedStderr();
    return written;
}

int occurrences(const std::string &text, const std::string &part) {
    int count = 0;
    for (size_t at = text.find(part); at != std::string::npos;
         at = text.find(part, at + part.size())) {
        count++;
    }
    return count;
}

}  // namespace lanyard::test
