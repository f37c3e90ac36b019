#include "tests/unit/failures/world.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <sys/stat.h>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/dict.h>
#include <lanyard/radius/mgmt.h>

namespace lanyard::test {
namespace {

namespace fs = std::filesystem;

constexpr uint32_t kPnac = 6;

// What the methods send and read.
constexpr const char *kDictionary =
    "ATTRIBUTE User-Name 1 string\n"
    "ATTRIBUTE Password 2 string\n"
    "ATTRIBUTE CHAP-Password 3 string\n"
    "ATTRIBUTE NAS-IP-Address 4 ipaddr\n"
    "ATTRIBUTE Service-Type 6 integer\n"
    "ATTRIBUTE Reply-Message 18 string\n"
    "ATTRIBUTE Vendor-Specific 26 string\n"
    "ATTRIBUTE Session-Timeout 27 integer\n"
    "ATTRIBUTE Idle-Timeout 28 integer\n"
    "ATTRIBUTE Acct-Status-Type 40 integer\n"
    "ATTRIBUTE CHAP-Challenge 60 string\n"
    "ATTRIBUTE EAP-Message 79 string\n"
    "ATTRIBUTE Message-Authenticator 80 string\n"
    "VALUE Service-Type Login-User 1\n";

Attributes grant(const ReceivedRequest &request) {
    const Bytes key = "a1a2a3a4a5a6a7a8"_hex;
    return Attributes()
        .addText(18, "hello")
        .addInteger(27, 60)
        .addInteger(28, 120)
        .addVendor(311, 17, encryptMppeKey(key, kSecret, request.authenticator()))
        .add(79, "03070004"_hex)
        .addMessageAuthenticator();
}

std::string contentOf(const fs::path &path) {
    const std::ifstream file(path);
    std::stringstream content;
    content << file.rdbuf();
    return content.str();
}

std::string textOf(const char *text) {
    return text != nullptr ? text : "(none)";
}

void describeServers(std::ostream &out, uint32_t index) {
    const auto *servers = static_cast<const RadServer *>(radConfGet(index));
    for (int slot = 0; servers != nullptr && slot < RAD_SERVERS_MAX; ++slot) {
        const RadServer &server = servers[slot];
        out << index << '.' << slot << ' ' << textOf(server.host) << ' ' << server.port << ' '
            << server.timeout << ' ' << server.retries << ' ' << textOf(server.secret) << ' '
            << textOf(server.extra) << ' ' << server.rowKey << ' ' << server.rowId << '\n';
    }
}

void describeConfiguration(std::ostream &out) {
    describeServers(out, RAD_CONF_AUTH_SERVERS);
    describeServers(out, RAD_CONF_ACCT_SERVERS);
    out << radConfGetNumServers(0) << ' ' << radConfGetNumServers(1) << " dictionary "
        << textOf(static_cast<const char *>(radConfGet(RAD_CONF_DICTIONARY)));
    for (const uint32_t index : {RAD_CONF_TIMEOUT, RAD_CONF_RETRIES}) {
        const auto *number = static_cast<const int32_t *>(radConfGet(index));
        out << ' ' << (number != nullptr ? std::to_string(*number) : "unset");
    }
    out << '\n';
    for (int32_t number = 0; number < 256; ++number) {
        if (const RadDictAttr *attribute = radDictGetAttr(number)) {
            out << number << ' ' << static_cast<const char *>(attribute->name) << ", ";
        }
    }
    out << (radDictGetVal(77, "User-Name") != nullptr ? "value" : "no value") << '\n';
}

// Those that the library writes; the databases are not its own.
void describeFiles(std::ostream &out, const fs::path &root) {
    std::set<std::string> lines;
    for (const auto &entry : fs::recursive_directory_iterator(root)) {
        struct stat status {};
        const std::string name = fs::relative(entry.path(), root);
        if ((name.starts_with("var/") || name.starts_with("tmp/")) &&
            lstat(entry.path().c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
            std::ostringstream line;
            line << name << ' ' << std::oct << status.st_mode << ' '
                 << std::hash<std::string>()(contentOf(entry.path()));
            lines.insert(line.str());
        }
    }
    std::copy(lines.begin(), lines.end(), std::ostream_iterator<std::string>(out, "\n"));
}

int neverHandles(void * /*busArg1*/, void * /*busArg2*/, uint32_t /*command*/, void * /*buffer*/,
                 uint32_t /*size*/, void * /*out*/, uint32_t * /*outSize*/) {
    return 0;
}

std::string configuration(const Servers &servers) {
    return "authserver 127.0.0.1:" + std::to_string(servers.auth.port()) + ":1:0:" + kSecret +
           "\nacctserver 127.0.0.1:" + std::to_string(servers.acct.port()) + ":1:0:" + kSecret +
           "\ndictionary " + kDictFile + "\ntimeout 1\nretries 0\n";
}

}  // namespace

Servers::Servers() {
    auth.otherwise(accept(grant));
    acct.otherwise(accountingResponse());
}

World::World(const Servers &servers, unsigned needs) : servers_(servers) {
    if (needs == kStopped) {
        device_.emplace();
    } else {
        library_.emplace(LibraryConfiguration{.authServers = {serverEntry(servers.auth, 1)},
                                              .acctServers = {serverEntry(servers.acct, 1)}});
        EXPECT_NE(nullptr, radPairAdd(&pairs, RAD_ATTR_USER_NAME, kUser, 0));
        EXPECT_NE(nullptr, radPairAdd(&pairs, RAD_ATTR_USER_PASSWORD, kUsersPassword, 0));
    }
    root().write(kConfFile, configuration(servers), 0600);
    root().write(kDictFile, kDictionary);
    root().makeFolder("/tmp");
    root().write(
        "/nexa2.0/bin/orvane_getNTResponse",
        "#!/bin/sh\nprintf 123456789012345678901234 > " + root().folder().string() + "\"$3\"\n",
        0700);
    if ((needs & (kDatabase | kInterrupted)) != 0) {
        openDatabase((needs & kInterrupted) != 0);
    }
    if ((needs & kBus) != 0) {
        EXPECT_EQ(0, radEapXbusInit());
        pnac_ = xbusRegister(kPnac, XBUS_MODE_HANDLER, neverHandles, nullptr);
        EXPECT_NE(nullptr, pnac_);
    }
    if ((needs & kConversation) != 0) {
        const Bytes identity = "02070009 01 6e656d6f"_hex;
        EXPECT_EQ(0, radEapRecv(identity.data(), static_cast<int32_t>(identity.size()), kCookie,
                                kPnac, 23));
    }
    if ((needs & kLoop) != 0) {
        loop = radLoopCreate();
        EXPECT_NE(nullptr, loop);
    }
    if ((needs & kRequest) != 0) {
        started = radRequestStart(loop, RAD_CODE_ACCESS_REQUEST, pairs, done, this);
        EXPECT_NE(nullptr, started);
    }
}

World::~World() {
    radLoopDestroy(loop);
    radPairListFree(made);
    radPairListFree(pairs);
    palMemPartFree(radMemPartId, block);
    EXPECT_EQ(0, radEapMsgQueueCleanUp());
    if (pnac_ != nullptr) {
        EXPECT_EQ(0, xbusUnRegister(pnac_));
    }
    if (pRadEapXbusCtx != nullptr) {
        EXPECT_EQ(0, xbusUnRegister(pRadEapXbusCtx));
        pRadEapXbusCtx = nullptr;
    }
    std::signal(SIGTERM, SIG_DFL);  // the relay's handler
    EXPECT_EQ(0, radiusMgmtDeInit());
    EXPECT_EQ(0, palRandLibInit(nullptr, nullptr));
}

const TemporaryRoot &World::root() const {
    return library_ ? library_->root() : device_->root();
}

// A writer that is killed leaves the journal beside the database.
void World::openDatabase(bool interrupted) {
    databasePath_ = root().path("/device.db");
    database_.emplace(databasePath_);
    // SQLite opens it by its real path, the dictionary by that of the device.
    database_->nameDictionary(kDictFile);
    database_->run(
        "INSERT INTO radiusClient VALUES ('127.0.0.2', '1812', 's2', '5', '3');"
        "INSERT INTO networkInterface (interfaceName, ipaddr) VALUES ('bdg', '127.0.0.1')");
    if (!interrupted) {
        EXPECT_EQ(0, radiusMgmtInit(databasePath_.c_str(), "test"));
        return;
    }
    database_->run(
        "PRAGMA journal_mode = DELETE; PRAGMA cache_size = 1; BEGIN; CREATE TABLE filler (text);"
        "WITH RECURSIVE n (i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 12) "
        "INSERT INTO filler SELECT hex(zeroblob(500)) FROM n");
    const std::string killed = root().path("/killed.db");
    fs::copy_file(databasePath_, killed);
    fs::copy_file(databasePath_ + "-journal", killed + "-journal");
    database_->run("ROLLBACK");
    databasePath_ = killed;
}

std::string World::state() const {
    std::ostringstream out;
    describeConfiguration(out);
    describeFiles(out, root().folder());
    for (const PalListNode *node = radEapMsgQueue.first; node != nullptr; node = node->next) {
        const auto &entry = *reinterpret_cast<const RadEapQueueEntry *>(node);
        out << "conversation " << entry.cookie << ' ' << textOf(entry.identity) << ' '
            << entry.packetLen << '\n';
    }
    out << (pRadEapXbusCtx != nullptr ? "on" : "off") << " the bus\n";
    return out.str();
}

RadRequestDesc World::request() const {
    return {.code = RAD_CODE_ACCESS_REQUEST,
            .identifier = 7,
            .host = "127.0.0.1",
            .port = servers_.auth.port(),
            .timeout = 1,
            .retries = 0,
            .secret = kSecret};
}

int64_t World::finishLoop() {
    for (int runs = 0; runs < 200 && code == 0; ++runs) {
        radLoopRun(loop, 5);
        clock_.advance(0.1);
    }
    return code;
}

void World::done(void *world, RadRequest * /*request*/, int code, RadPair *reply) {
    static_cast<World *>(world)->code = code;
    radPairListFree(reply);
}

void World::loginDone(void *world, RadRequest * /*request*/, const RadLogin *login) {
    static_cast<World *>(world)->code = login->code;
}

}  // namespace lanyard::test
