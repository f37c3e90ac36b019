// The services under a service manager: what they tell it when they start, read again and end, and what
// they do in the foreground.
#include <algorithm>
#include <array>
#include <csignal>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <poll.h>
#include <sched.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "tests/interop/child_process.h"
#include "tests/interop/wait_until.h"
#include "tests/support/temporary_root.h"
#include "tools/file_descriptor.h"
#include "tools/log_to_syslog.h"
#include "tools/notify.h"

namespace lanyard::test::services_test {
namespace {

// Where the stand-ins for syslog write.
FILE *syslogFile = nullptr;

using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;

// Stands in for the service manager: a socket that is told things.
class Manager {
  public:
    // An abstract name when it begins with '@'.
    explicit Manager(std::string name)
        : name_(std::move(name)),
          socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0), "manager's socket") {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        name_.copy(address.sun_path, sizeof(address.sun_path) - 1);
        if (name_.starts_with('@')) {
            address.sun_path[0] = '\0';
        }
        const auto size = offsetof(sockaddr_un, sun_path) + name_.size();
        checked(bind(socket_.get(), reinterpret_cast<const sockaddr *>(&address),
                     static_cast<socklen_t>(size)),
                name_);
    }

    [[nodiscard]] std::string setting() const { return "NOTIFY_SOCKET=" + name_; }
    [[nodiscard]] const char *name() const { return name_.c_str(); }

    // What it is told next; "" when that is nothing.
    [[nodiscard]] std::string next(int milliseconds = 20'000) const {
        pollfd told{.fd = socket_.get(), .events = POLLIN, .revents = 0};
        std::array<char, 512> text = {};
        if (poll(&told, 1, milliseconds) != 1) {
            return "";
        }
        const ssize_t size = recv(socket_.get(), text.data(), text.size(), 0);
        return {text.data(), static_cast<size_t>(std::max<ssize_t>(size, 0))};
    }

  private:
    std::string name_;
    FileDescriptor socket_;
};

constexpr const char *kReloading = "RELOADING=1\nMONOTONIC_USEC=[0-9]+";

class Notify : public testing::Test {
  protected:
    ~Notify() override { unsetenv("NOTIFY_SOCKET"); }

    TemporaryRoot root_;
};

TEST_F(Notify, ReachesASocketAndAnAbstractOne) {
    for (const std::string &name :
         {root_.path("/notify").string(), "@lanyard-test-" + std::to_string(getpid())}) {
        const Manager manager(name);
        setenv("NOTIFY_SOCKET", manager.name(), 1);
        notifyManager("READY=1\nSTATUS=serves");
        EXPECT_EQ("READY=1\nSTATUS=serves", manager.next());
        notifyReloading();
        EXPECT_THAT(manager.next(), MatchesRegex(kReloading));
        EXPECT_EQ("", manager.next(0)) << "a datagram each";
    }
}

TEST_F(Notify, WithoutAManager_DoesNothing) {
    unsetenv("NOTIFY_SOCKET");
    notifyManager("READY=1");
    const Manager manager(root_.path("/notify").string());
    for (const std::string &name : {std::string(), std::string("@"), std::string("notify"),
                                    root_.path("/nobody").string(), "/" + std::string(200, 'x')}) {
        setenv("NOTIFY_SOCKET", name.c_str(), 1);
        notifyManager("READY=1");
    }
    EXPECT_EQ("", manager.next(0));
}

TEST(LogToSyslog, TakesBothStreamsLineByLine) {
    const TemporaryRoot root;
    root.write("/log", "");
    syslogFile = fopen(root.path("/log").c_str(), "ae");
    (void)std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        logToSyslog("service");
        (void)std::printf("first\n\n100%%s\n");
        (void)std::fflush(stdout);
        (void)std::fprintf(stderr, "complaint");
        _exit(0);
    }
    waitpid(child, nullptr, 0);
    (void)fclose(std::exchange(syslogFile, nullptr));
    const std::string name = "service[" + std::to_string(child) + "] ";
    const std::string info = name + std::to_string(LOG_DAEMON) + " " + std::to_string(LOG_INFO);
    const std::string warning =
        name + std::to_string(LOG_DAEMON) + " " + std::to_string(LOG_WARNING);
    const std::string out = info + " first\n" + info + " \n" + info + " 100%s\n";
    const std::string err = warning + " complaint\n";
    // The two streams are handed on beside each other.
    EXPECT_TRUE(waitUntil([&] { return root.read("/log").size() == out.size() + err.size(); }))
        << root.read("/log");
    EXPECT_THAT(root.read("/log"), HasSubstr(err));
    EXPECT_THAT(root.read("/log"), AllOf(HasSubstr(info + " first\n"), HasSubstr(" 100%s\n")));
}

// A device with a database and a manager.
class Services : public testing::Test {
  protected:
    void SetUp() override {
        std::ifstream dictionary(LANYARD_DICTIONARY);
        root_.write("/nexa2.0/etc/radius.dict",
                    std::string(std::istreambuf_iterator<char>(dictionary), {}));
        const ProgramResult result = runProgram({LANYARD_LANYARDCTL, "db", "init"}, settings());
        ASSERT_EQ(0, result.status) << result.err;
    }

    [[nodiscard]] std::vector<std::string> settings() const {
        return {"PAL_ROOT=" + root_.folder().string(), manager_.setting()};
    }
    [[nodiscard]] std::string database() const {
        return root_.path("/var/lib/lanyard/config.db").string();
    }

    // The life of a service: it starts, reads again, and ends.
    void live(const std::vector<std::string> &command, const std::string &status,
              const std::string &saidOnReload) {
        RunningProgram service(command, settings(), root_.path("/output"));
        EXPECT_EQ("READY=1\nSTATUS=" + status, manager_.next()) << service.output();
        service.signal(SIGHUP);
        EXPECT_THAT(manager_.next(), MatchesRegex(kReloading)) << service.output();
        EXPECT_THAT(manager_.next(), MatchesRegex("READY=1.*")) << service.output();
        EXPECT_TRUE(service.waitForOutput(saidOnReload)) << service.output();
        service.signal(SIGTERM);
        EXPECT_EQ("STOPPING=1", manager_.next());
        EXPECT_EQ(0, service.wait()) << service.output();
        EXPECT_EQ("", manager_.next(0));
    }

    TemporaryRoot root_;
    Manager manager_{root_.path("/notify").string()};
};

TEST_F(Services, Radeapd_TellsTheManager) {
    live({LANYARD_RADEAPD, "--foreground", "-d", database()},
         "serves the authenticators on the bus", "radeapd: nothing to read again");
    EXPECT_FALSE(root_.exists("/run/xbus/8")) << "it has left the bus";
}

TEST_F(Services, RadeapdInTheForeground_HasTheTasksName) {
    const RunningProgram relay({LANYARD_RADEAPD, "-d", database(), "--foreground"}, settings(),
                               root_.path("/output"));
    ASSERT_NE("", manager_.next()) << relay.output();
    std::ifstream comm("/proc/" + std::to_string(relay.id()) + "/comm");
    std::string name;
    EXPECT_TRUE(waitUntil([&] {
        comm.clear();
        comm.seekg(0);
        std::getline(comm, name);
        return name == "tRadEap";
    })) << name;
}

TEST_F(Services, Lanyardctl_TellsTheManager) {
    live({LANYARD_LANYARDCTL, "db", "serve"}, "serves " + database(),
         "service: reads the table again");
}

TEST_F(Services, Accounting_TellsTheManager) {
    live({LANYARD_LANYARDCTL, "acct", "flush", "--every", "3600"},
         "serves " + root_.path("/var/lib/lanyard/accounting.db").string(),
         "accounting: reads the configuration again");
}

TEST_F(Services, PnacWired_TellsTheManager) {
    if (unshare(CLONE_NEWNET) != 0) {
        GTEST_SKIP() << "no right to make network namespaces";
    }
    ASSERT_EQ(0, runProgram({"/bin/sh", "-c",
                             "PATH=/sbin:/bin; ip link add port type veth peer name user && "
                             "ip link set port up && ip link set user up"},
                            {})
                     .status);
    live({LANYARD_PNAC_WIRED, "port"}, "guards port", "ready on port");
}

}  // namespace
}  // namespace lanyard::test::services_test

// Stand in for the C library's.
extern "C" {

static std::string syslogName;
static int syslogFacility = 0;

void openlog(const char *ident, int option, int facility) {
    syslogName = ident;
    EXPECT_EQ(0, option);
    syslogFacility = facility;
}

void syslog(int pri, const char *fmt, ...) {
    std::array<char, 512> text = {};
    va_list arguments;
    va_start(arguments, fmt);
    (void)std::vsnprintf(text.data(), text.size(), fmt, arguments);
    va_end(arguments);
    (void)std::fprintf(lanyard::test::services_test::syslogFile, "%s %d %d %s\n",
                       syslogName.c_str(), syslogFacility, pri, text.data());
    (void)std::fflush(lanyard::test::services_test::syslogFile);
}
}
