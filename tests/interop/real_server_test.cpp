// The server that the other tests rely on does not outlive them.
#include "tests/interop/real_server.h"

#include <arpa/inet.h>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <optional>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "tests/support/temporary_folder.h"
#include "tools/file_descriptor.h"

namespace lanyard::test::real_server_test {
namespace {

bool portIsFree(uint16_t port) {
    const FileDescriptor probe(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket");
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return bind(probe.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
}

bool portBecomesFree(uint16_t port) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < deadline) {
        if (portIsFree(port)) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return false;
}

TEST(RealServer, Ports_HeldUntilItsEnd) {
    std::optional<RealServer> server(std::in_place);
    const std::array<uint16_t, 3> ports = {server->authPort(), server->signedPort(),
                                           server->acctPort()};
    for (const uint16_t port : ports) {
        EXPECT_FALSE(portIsFree(port));
    }
    server.reset();
    for (const uint16_t port : ports) {
        EXPECT_TRUE(portIsFree(port));
    }
}

TEST(RealServer, ProcessThatStartedItDies_EndsToo) {
    const TemporaryFolder folder;
    Pipe pipe;
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        // Where the folder of the server goes, which nobody in there can remove any more.
        setenv("TMPDIR", folder.path().c_str(), 1);
        const RealServer server;
        const uint16_t port = server.authPort();
        if (write(pipe.writeEnd.get(), &port, sizeof port) == sizeof port) {
            pause();
        }
        _exit(1);
    }
    pipe.writeEnd.reset();
    uint16_t port = 0;
    EXPECT_EQ(ssize_t{sizeof port}, read(pipe.readEnd.get(), &port, sizeof port));
    EXPECT_FALSE(portIsFree(port));
    kill(child, SIGKILL);
    ASSERT_EQ(child, waitpid(child, nullptr, 0));
    EXPECT_TRUE(portBecomesFree(port));
}

}  // namespace
}  // namespace lanyard::test::real_server_test
