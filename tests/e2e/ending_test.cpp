// The ends of sessions: whatever ends one runs the program that closes the port, and a terminal that
// is closed ends none.
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "tests/e2e/end_to_end.h"
#include "tests/interop/wait_until.h"
#include "tools/file_descriptor.h"

namespace lanyard::test::ending_test {
namespace {

class Ending : public EndToEnd {
  protected:
    // Options with a program that writes down what becomes of the port.
    std::vector<std::string> options() {
        const std::filesystem::path program = device().root() / "port.sh";
        std::ofstream(program) << "#!/bin/sh\necho $PNAC_EVENT, $PNAC_REASON >> '"
                               << portFile().string() << "'\n";
        std::filesystem::permissions(program, std::filesystem::perms::owner_all);
        return {"--on-authorized", program, "--on-unauthorized", program};
    }

    std::filesystem::path portFile() { return device().root() / "port"; }

    // Waits until the program has written that, and nothing else.
    bool portIs(const std::string &wanted) {
        return waitUntil([&] {
            std::ifstream file(portFile());
            return std::string(std::istreambuf_iterator<char>(file), {}) == wanted;
        });
    }

    // A supplicant that waits to be asked for its identity.
    static std::unique_ptr<Supplicant> supplicant() {
        auto made = std::make_unique<Supplicant>(wire(), md5Account("alice", "wonderland"));
        made->awaitReady();
        return made;
    }

    static void setLink(const char *state) {
        const ProgramResult result =
            runProgram({"/sbin/ip", "link", "set", VirtualWire::kPort, state}, {});
        EXPECT_EQ(0, result.status) << result.err;
    }
};

TEST_F(Ending, Signal_RunsTheProgram) {
    for (const int signal : {SIGTERM, SIGINT, SIGQUIT, SIGUSR2, SIGALRM, SIGXCPU, SIGRTMIN}) {
        std::filesystem::remove(portFile());
        const auto alice = supplicant();
        device().startAuthenticator(options());
        ASSERT_TRUE(portIs("authorized, accepted\n")) << signal;
        device().signalAuthenticator(signal);
        EXPECT_EQ(0, device().awaitAuthenticatorsEnd()) << signal;
        EXPECT_TRUE(portIs("authorized, accepted\nunauthorized, shutdown\n")) << signal;
    }
}

TEST_F(Ending, LinkDown_RunsTheProgram) {
    const auto alice = supplicant();
    device().startAuthenticator(options());
    EXPECT_TRUE(portIs("authorized, accepted\n"));
    setLink("down");
    EXPECT_TRUE(portIs("authorized, accepted\nunauthorized, link down\n"));
    setLink("up");
}

TEST_F(Ending, Sighup_EndsNoSession) {
    const auto alice = supplicant();
    device().startAuthenticator(options());
    ASSERT_TRUE(portIs("authorized, accepted\n"));
    device().signalAuthenticator(SIGHUP);
    // Taken after the one before.
    device().signalAuthenticator(SIGUSR1);
    EXPECT_TRUE(
        device().waitForEvent([](const Event &event) { return event.at("event") == "counters"; }));
    EXPECT_TRUE(portIs("authorized, accepted\n"));
    alice->logOff();
    EXPECT_TRUE(portIs("authorized, accepted\nunauthorized, logoff\n"));
}

TEST_F(Ending, TerminalClosed_EndsNoSession) {
    std::optional<FileDescriptor> terminal(std::in_place,
                                           posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC), "terminal");
    ASSERT_EQ(0, grantpt(terminal->get()));
    ASSERT_EQ(0, unlockpt(terminal->get()));
    const std::string name = ptsname(terminal->get());
    const auto alice = supplicant();
    device().startAuthenticatorAt(name, options());
    ASSERT_TRUE(portIs("authorized, accepted\n"));
    terminal.reset();
    device().signalAuthenticator(SIGHUP);
    // Its lines fail from here on.
    device().signalAuthenticator(SIGUSR1);
    alice->logOff();
    EXPECT_TRUE(portIs("authorized, accepted\nunauthorized, logoff\n"));
    alice->start();
    EXPECT_TRUE(portIs("authorized, accepted\nunauthorized, logoff\nauthorized, accepted\n"));
}

}  // namespace
}  // namespace lanyard::test::ending_test
