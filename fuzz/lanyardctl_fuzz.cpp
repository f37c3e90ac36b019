// Command lines of lanyardctl, one a line, on a new database. Words are parted by blanks; a slash is no part of
// one, so that no file but those of the target's own folder is met, and there is no network, so that no server
// is. What it accepts the library can read.
#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/dict.h>
#include <palroot.h>

#include "fuzz/environment.h"
#include "tests/support/temporary_folder.h"
#include "tools/lanyardctl/database.h"
#include "tools/lanyardctl/servers.h"

static FILE *const nowhere = std::fopen("/dev/null", "w");
#undef stderr
#define stderr nowhere
#define main lanyardctlMain
#include "tools/lanyardctl/main.cpp"  // NOLINT(bugprone-suspicious-include): its main() is called
#undef main

namespace {

using namespace lanyard::fuzz;
namespace fs = std::filesystem;

constexpr const char *kFile = "config.db";
constexpr size_t kCommandsMax = 12;
constexpr size_t kWordsMax = 24;

// A folder in memory where there is one.
class Folder {
  public:
    Folder() {
        if (fs::exists("/dev/shm")) {
            setenv("TMPDIR", "/dev/shm", 0);
        }
        folder_.emplace();
        require(freopen("/dev/null", "r", stdin) != nullptr, "nobody is asked for a password");
        require(chdir(folder_->path().c_str()) == 0, "there is a folder");
        palRootSet(folder_->path().c_str());
        setenv("PAL_ROOT", folder_->path().c_str(), 1);
    }

    void empty() const {
        for (const auto &entry : fs::directory_iterator(folder_->path())) {
            fs::remove_all(entry.path());
        }
    }

  private:
    std::optional<lanyard::test::TemporaryFolder> folder_;
};

std::vector<std::vector<std::string>> commandsFrom(const uint8_t *data, size_t size) {
    std::vector<std::vector<std::string>> commands(1);
    bool inWord = false;
    for (const uint8_t byte : ByteView(data, size)) {
        if (byte == '\n') {
            commands.emplace_back();
        }
        const bool isWord = byte > ' ';
        if (isWord && !inWord) {
            commands.back().emplace_back();
        }
        if (isWord) {
            commands.back().back().push_back(byte == '/' ? '_' : static_cast<char>(byte));
        }
        inWord = isWord;
    }
    return commands;
}

// The service and a load run for as long as they are told, and accounting makes databases of its own.
bool isLeftOut(const std::vector<std::string> &words) {
    return words.size() > kWordsMax ||
           std::any_of(words.begin(), words.end(), [](const std::string &word) {
               return word == "serve" || word == "load" || word == "acct";
           });
}

int runCommand(std::vector<std::string> words) {
    words.insert(words.begin(), "lanyardctl");
    std::vector<char *> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string &word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    return lanyardctlMain(static_cast<int>(words.size()), arguments.data());
}

// The table that lanyardctl has made, as the library reads it.
void checkDatabase() {
    const auto database = lanyardctl::Database::open(kFile);
    const std::vector<lanyardctl::Server> servers = lanyardctl::readServers(database);
    require(lanyardctl::usableServers(servers) == servers, "what is stored can be used");
    require(!lanyardctl::fileProblemOf(servers), "the configuration file can carry it");
    for (const lanyardctl::Server &server : servers) {
        const std::string entry = *server.host + ':' + *server.port + ':' + *server.timeout + ':' +
                                  *server.retries + ':' + *server.secret;
        require(radConfSetServers(entry.c_str(), RAD_SERVER_AUTH) == 0, "the library takes it");
    }
    require(radConfGetNumServers(RAD_SERVER_AUTH) == static_cast<int>(servers.size()),
            "the library has them all");
    radConfDelAuthServ();
}

}  // namespace

// The bus is there, and nothing else.
int socket(int domain, int type, int protocol) noexcept {
    if (domain != AF_UNIX) {
        errno = EAFNOSUPPORT;
        return -1;
    }
    return static_cast<int>(syscall(SYS_socket, domain, type, protocol));
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const Folder folder;
    folder.empty();
    radDictUnload();  // as `db init` does, which looks at the dictionary
    radConfDelAuthServ();
    const size_t before = liveBlocks();
    size_t count = 0;
    for (const auto &words : commandsFrom(data, size)) {
        if (++count > kCommandsMax || isLeftOut(words)) {
            continue;
        }
        const int status = runCommand(words);
        require(status >= 0 && status <= 5, "an exit status is one that is known");
    }
    if (fs::exists(kFile) && fs::is_regular_file(kFile)) {
        checkDatabase();
    }
    require(liveBlocks() == before, "every block is freed");
    return 0;
}
