// radeapd as a process of its own, with a database, between a bus and servers.
#ifndef LANYARD_TESTS_UNIT_RELAY_RADEAPD_FIXTURE_H
#define LANYARD_TESTS_UNIT_RELAY_RADEAPD_FIXTURE_H

#include <charconv>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <poll.h>
#include <sstream>
#include <string>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include <lanyard/radius/eap.h>
#include <lanyard/radius/mgmt.h>
#include <xbus.h>

#include "tests/interop/child_process.h"
#include "tests/support/test.h"
#include "tests/unit/device/database_file.h"
#include "tools/file_descriptor.h"

namespace lanyard::test {

inline constexpr const char *kDictionary = "/nexa2.0/etc/radius.dict";

inline std::string contentOf(const std::filesystem::path &path) {
    // A process may end while its file is read, which stream iterators throw for.
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return std::move(content).str();
}

// Awaits a condition; false when it does not come true.
inline bool comes(const std::function<bool()> &condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

class Radeapd : public testing::Test {
  protected:
    void SetUp() override {
        root.write(kDictionary, contentOf(LANYARD_DICTIONARY));
        root.write("/var/hosts", "127.0.0.1 " + hostName() + "\n");
        prepareDatabase();
        ASSERT_EQ(0, xbusInit());
        bus = xbusRegister(RAD_EAP_PNAC_MODULE, XBUS_MODE_HANDLER, keep, this);
        ASSERT_NE(nullptr, bus);
        const ProgramResult started = runProgram(command, {"PAL_ROOT=" + root.folder().string()});
        ASSERT_EQ(0, started.status) << started.err;
        ASSERT_TRUE(comes([this] { return findDaemon(); }));
    }

    void TearDown() override {
        if (daemon > 0 && isAlive()) {
            EXPECT_EQ(0, kill(daemon, SIGKILL));
        }
        EXPECT_EQ(0, xbusUnRegister(bus));
    }

    virtual void prepareDatabase() { database.nameDictionary(kDictionary); }

    static std::string hostName() {
        char name[256] = {};
        EXPECT_EQ(0, gethostname(name, sizeof(name) - 1));
        return static_cast<const char *>(name);
    }

    // The relay's last record.
    static int keep(void * /*busArg1*/, void *test, uint32_t /*cmd*/, void *buf, uint32_t len,
                    void * /*out*/, uint32_t * /*outLen*/) {
        const auto *bytes = static_cast<const uint8_t *>(buf);
        static_cast<Radeapd *>(test)->answer.assign(bytes, bytes + len);
        return 0;
    }

    // The one process with this test's command line; an emulator has its own words before that.
    bool findDaemon() {
        std::string wanted;
        for (const std::string &word : command) {
            wanted += word + '\0';
        }
        for (const auto &entry : std::filesystem::directory_iterator("/proc")) {
            const std::string name = entry.path().filename().string();
            pid_t pid = 0;
            const auto [rest, error] = std::from_chars(name.data(), name.data() + name.size(), pid);
            if (error == std::errc() && *rest == '\0' &&
                contentOf(entry.path() / "cmdline").ends_with(wanted)) {
                daemon = pid;
                process.emplace(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)), "pidfd");
                return true;
            }
        }
        return false;
    }

    [[nodiscard]] bool endsWithin(std::chrono::milliseconds time) const {
        pollfd ended{.fd = process->get(), .events = POLLIN, .revents = 0};
        return poll(&ended, 1, static_cast<int>(time.count())) == 1;
    }
    [[nodiscard]] bool isAlive() const { return !endsWithin(std::chrono::milliseconds(0)); }

    int send(uint32_t busCommand, ByteView message, uint32_t flags = XBUS_NO_WAIT) const {
        uint32_t outLen = 0;
        return xbusIoctl(bus, RAD_EAP_MODULE, busCommand, message.data(),
                         static_cast<uint32_t>(message.size()), nullptr, &outLen, flags, 0, 0);
    }

    // Tells the relay of a new row.
    int notify(int rowId) const {
        const RadDbUpdateInfo notice{.tableName = "radiusClient",
                                     .rowKey = 4,
                                     .rowId = rowId,
                                     .opCode = RAD_DB_INSERT,
                                     .reserved = 0};
        return send(RAD_EAP_CMD_DB_UPDATE,
                    {reinterpret_cast<const uint8_t *>(&notice), sizeof(notice)}, 0);
    }

    // The values of a row for a server.
    template <typename Server>
    static std::string row(const Server &server, const std::string &timeout) {
        return "'" + server.host() + "', '" + std::to_string(server.port()) + "', 's', '" +
               timeout + "', '3'";
    }

    // Stores a server and tells the relay.
    template <typename Server>
    int addServer(const Server &server, const std::string &timeout) const {
        return notify(database.addServer(row(server, timeout)));
    }

    // Sends an EAP-Response of that type in a conversation.
    int respond(uint32_t cookie, uint8_t type, ByteView data) const {
        const auto size = static_cast<uint16_t>(5 + data.size());
        const RadEapXbusMsg head{.cookie = cookie, .command = 17, .length = size};
        const auto *bytes = reinterpret_cast<const uint8_t *>(&head);
        return send(17, concatenate({Bytes(bytes, bytes + sizeof(head)),
                                     Bytes{2, 1, static_cast<uint8_t>(size >> 8),
                                           static_cast<uint8_t>(size), type},
                                     data}));
    }
    // What a person is shown.
    ProgramResult askWithProgram() const {
        return runProgram({LANYARD_LANYARDCTL, "relay", "status"},
                          {"PAL_ROOT=" + root.folder().string()});
    }

    int identify(std::string_view name) const { return respond(7, 1, fromText(name)); }

    // The same, and awaits the code of the EAP packet that comes back; 0 when none does.
    int codeOfAnswer(uint32_t cookie, uint8_t type, ByteView data) {
        constexpr size_t kCode = sizeof(RadEapXbusMsg);
        answer.clear();
        if (respond(cookie, type, data) != 0 ||
            !comes([this] { return xbusListen(bus, 100000) == 1 && answer.size() > kCode; })) {
            return 0;
        }
        uint32_t answered = 0;
        std::memcpy(&answered, answer.data(), sizeof(answered));
        EXPECT_EQ(cookie, answered);
        return answer[kCode];
    }

    TemporaryRoot root;
    DatabaseFile database{root.path("/device.db")};
    std::vector<std::string> command{LANYARD_RADEAPD, "-d", database.path()};
    XbusCtx *bus = nullptr;
    Bytes answer;
    pid_t daemon = 0;
    std::optional<FileDescriptor> process;
};

}  // namespace lanyard::test

#endif
