/**
 * @file
 * The programs that make requests: one source, compiled for each of them with its name as
 * LANYARD_PROGRAM. The table below says what each one is.
 */
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <unistd.h>

#include <lanyard/radius/conf.h>
#include <lanyard/radius/engine.h>
#include <lanyard/radius/error.h>
#include <lanyard/radius/frame.h>
#include <lanyard/radius/methods.h>

namespace {

// --- The outcome of a request ---------------------------------------------------------------------

// Whether an entry point returned success and the server's reply says so too. MS-CHAPv2 also
// returns 0 for some refusals.
bool succeeded(int result, int32_t successCode) {
    const RadLastError *last = radLastError();
    return result == 0 && last != nullptr && last->code == successCode;
}

// Prints a line for each server that was asked in vain.
void printReasons(int32_t successCode) {
    for (int i = 0; const RadLastError *error = radLastErrorAt(i); i++) {
        if (error->code != successCode) {
            std::array<char, RAD_LAST_ERROR_TEXT_SIZE> text{};
            radLastErrorText(error, text.data(), text.size());
            (void)std::fprintf(stderr, "  %s\n", text.data());
        }
    }
}

// The exit status for what an entry point returned; the reasons of a failure are printed.
int exitStatus(int result, int32_t successCode) {
    if (succeeded(result, successCode)) {
        return EXIT_SUCCESS;
    }
    printReasons(successCode);
    return EXIT_FAILURE;
}

// --- How the entry points are run -----------------------------------------------------------------

using EntryPoint = int (*)(int argc, char *argv[]);

template <EntryPoint entryPoint, int32_t successCode = RAD_CODE_ACCESS_ACCEPT>
int runPlain(const char * /*program*/, int argc, char *argv[]) {
    return exitStatus(entryPoint(argc, argv), successCode);
}

// Longer than any limit that a reply can carry, as unsigned and as int.
constexpr uint32_t kNotLimited = INT32_MAX;

void printLimit(const char *what, uint32_t minutes) {
    if (minutes == kNotLimited) {
        std::printf("%s: not limited\n", what);
    } else {
        std::printf("%s: %u %s\n", what, minutes, minutes == 1 ? "minute" : "minutes");
    }
}

// A captive portal: prints the limits that the server grants.
template <auto entryPoint, typename Minutes = uint32_t>
int runPortal(const char *program, int argc, char *argv[]) {
    auto idleMinutes = static_cast<Minutes>(kNotLimited);
    auto sessionMinutes = static_cast<Minutes>(kNotLimited);
    const int result = entryPoint(argc, argv, &idleMinutes, &sessionMinutes);
    if (!succeeded(result, RAD_CODE_ACCESS_ACCEPT)) {
        (void)std::fprintf(stderr, "%s: the user is not let in\n", program);
        printReasons(RAD_CODE_ACCESS_ACCEPT);
        return EXIT_FAILURE;
    }
    std::puts("The user is let in.");
    printLimit("Idle", static_cast<uint32_t>(idleMinutes));
    printLimit("Session", static_cast<uint32_t>(sessionMinutes));
    return EXIT_SUCCESS;
}

// No code of a packet and no result of the library.
constexpr int32_t kNotAsked = INT32_MIN;

void printResult(int number, const RadServer &server, int32_t result) {
    std::printf("%d %s:%u ", number, server.host, unsigned{server.port});
    switch (result) {
        case kNotAsked:
            std::puts("not asked");
            break;
        case -1:
            std::puts("no valid reply");
            break;
        case RAD_CODE_ACCESS_ACCEPT:
            std::puts("Access-Accept");
            break;
        case RAD_CODE_ACCESS_REJECT:
            std::puts("Access-Reject");
            break;
        case RAD_CODE_ACCESS_CHALLENGE:
            std::puts("Access-Challenge");
            break;
        default:
            std::printf("reply with code %d\n", result);
            break;
    }
}

// Asks every server, and prints what each of them says.
int runEveryServer(const char *program, int argc, char *argv[]) {
    std::array<int32_t, RAD_SERVERS_MAX> results;
    results.fill(kNotAsked);
    const int result = radAuthSampleMainCheckAllServer(argc, argv, results.data());

    if (const auto *servers = static_cast<const RadServer *>(radConfGet(RAD_CONF_AUTH_SERVERS))) {
        const int count = std::min(radConfGetNumServers(RAD_SERVER_AUTH), RAD_SERVERS_MAX);
        int number = 0;
        for (int slot = 0; slot < RAD_SERVERS_MAX && number < count; slot++) {
            if (servers[slot].host != nullptr) {
                printResult(number + 1, servers[slot], results[static_cast<size_t>(number)]);
                number++;
            }
        }
    }

    // The entry point gives its reasons at level 128 only, which nobody sees by default.
    if (result != 0 && std::count(results.begin(), results.end(), kNotAsked) == RAD_SERVERS_MAX) {
        (void)std::fprintf(
            stderr,
            "%s: no server was asked; check the arguments and the configuration file\n"
            "Usage: %s [-v] [ -f confFile] <username> <password>\n"
            "User names have at most %d characters, passwords at most %d.\n",
            program, program, RAD_USER_NAME_MAX, RAD_PASSWORD_MAX);
    }
    return exitStatus(result, RAD_CODE_ACCESS_ACCEPT);
}

// --- The password of the command line -------------------------------------------------------------

// Takes it out of the arguments, which everybody can read in the list of processes, and wipes it at the end.
class HiddenPassword {
  public:
    HiddenPassword() = default;
    HiddenPassword(const HiddenPassword &) = delete;
    HiddenPassword &operator=(const HiddenPassword &) = delete;
    ~HiddenPassword() { explicit_bzero(text_.data(), text_.size()); }

    // "-" stands for a line of standard input. False when that cannot be read.
    bool takeFrom(int argc, char *argv[]) {
        char **place = find(argc, argv);
        if (!place) {
            return true;
        }
        if (std::strcmp(*place, "-") == 0) {
            *place = text_.data();
            return readLine();
        }
        const size_t size = std::strlen(*place);
        std::memcpy(text_.data(), *place, std::min(size, text_.size() - 1));
        explicit_bzero(*place, size);
        *place = text_.data();
        return true;
    }

  private:
    // The second argument that is no option; null when there is none. The options are those of the
    // entry points.
    static char **find(int argc, char *argv[]) {
        int positional = 0;
        bool onlyPositional = false;
        for (int i = 1; i < argc; ++i) {
            const std::string_view argument = argv[i];
            if (onlyPositional || argument == "-" || !argument.starts_with('-')) {
                if (++positional == 2) {
                    return &argv[i];
                }
            } else if (argument == "--") {
                onlyPositional = true;
            } else if (argument.find('f') == argument.size() - 1) {
                ++i;  // its value
            }
        }
        return nullptr;
    }

    // Past its buffer nothing is kept: the entry points refuse or cut a password that long.
    bool readLine() {
        size_t size = 0;
        char character = 0;
        while (read(STDIN_FILENO, &character, 1) == 1 && character != '\n') {
            if (size < text_.size() - 1) {
                text_[size++] = character;
            }
        }
        const bool isLine = character == '\n' || size > 0;
        explicit_bzero(&character, 1);
        return isLine;
    }

    std::array<char, 1024> text_{};
};

// --- The programs ---------------------------------------------------------------------------------

// An option of the library. On the command line such options stand in front of those of the entry
// point, in any order and each once.
struct LibraryOption {
    const char *argument = nullptr;
    int option = 0;
    const char *help = nullptr;
};

constexpr LibraryOption kBuiltin{"--builtin", RAD_OPTION_BUILTIN_NT_RESPONSE,
                                 "computes the NT-Response itself"};
constexpr LibraryOption kStandardSha1{"--standard-sha1", RAD_OPTION_STANDARD_SHA1,
                                      "takes the published SHA-1, as standard servers do"};

constexpr LibraryOption kResilient{"--resilient", RAD_OPTION_RESILIENT,
                                   "ignores what is no valid reply, leaves dead servers sooner"};
constexpr LibraryOption kSigned{"--require-signed", RAD_OPTION_REQUIRE_MESSAGE_AUTHENTICATOR,
                                "takes only replies with a Message-Authenticator"};

constexpr const char *kLogin = "<username> <password>";

struct Program {
    const char *name;
    int (*run)(const char *program, int argc, char *argv[]);
    const char *help;
    const char *arguments = kLogin;
    std::array<LibraryOption, 4> options = {kResilient, kSigned};
};

constexpr std::array kPrograms{
    Program{"radauth", runPlain<radAuthSampleMain>, "logs a user in with PAP"},
    Program{"radauth-all", runEveryServer, "asks every server for a user, with PAP"},
    Program{"radauth-portal", runPortal<radAuthSampleMainCaptivePortal>,
            "logs a user in with PAP and prints the limits that the server grants"},
    Program{"radchap", runPlain<radChapSampleMain>, "logs a user in with CHAP"},
    Program{"radchap-portal", runPortal<radChapSampleMainCaptivePortal, int>,
            "logs a user in with CHAP and prints the limits that the server grants"},
    Program{"radmschap",
            runPlain<radMschapSampleMain>,
            "logs a user in with MS-CHAP",
            kLogin,
            {kBuiltin, kResilient, kSigned}},
    Program{"radmschap-portal",
            runPortal<radMschapSampleMainCaptivePortal>,
            "logs a user in with MS-CHAP and prints the limits that the server grants",
            kLogin,
            {kBuiltin, kResilient, kSigned}},
    Program{"radmschapv2",
            runPlain<radMschapv2SampleMain>,
            "logs a user in with MS-CHAPv2",
            kLogin,
            {kBuiltin, kStandardSha1, kResilient, kSigned}},
    Program{"radmschapv2-portal",
            runPortal<radMschapv2SampleMainCaptivePortal>,
            "logs a user in with MS-CHAPv2 and prints the limits that the server grants",
            kLogin,
            {kBuiltin, kStandardSha1, kResilient, kSigned}},
    Program{"radacct",
            runPlain<radAcctSampleMain, RAD_CODE_ACCOUNTING_RESPONSE>,
            "sends one accounting record",
            "[-s status]",
            {kResilient}},
};

// The row of a program; a name without one does not compile.
consteval Program programNamed(std::string_view name) {
    for (const Program &program : kPrograms) {
        if (name == program.name) {
            return program;
        }
    }
    std::abort();
}

void printHelp(const Program &program) {
    std::printf("%s: %s.\nUsage: %s", program.name, program.help, program.name);
    for (const LibraryOption &option : program.options) {
        if (option.argument) {
            std::printf(" [%s]", option.argument);
        }
    }
    std::printf(" [-v] [ -f confFile] %s\n", program.arguments);
    if (program.arguments == kLogin) {
        std::puts("  <password>       - reads it from standard input");
    }
    for (const LibraryOption &option : program.options) {
        if (option.argument) {
            std::printf("  %-16s %s\n", option.argument, option.help);
        }
    }
}

// Takes one of the options off the command line and sets what it stands for. False when none of
// them comes next that is not set already.
bool takeLibraryOption(const Program &program, int &argc, char **&argv) {
    for (const LibraryOption &entry : program.options) {
        if (argc > 1 && entry.argument && std::strcmp(argv[1], entry.argument) == 0 &&
            radOptionGet(entry.option) == 0) {
            radOptionSet(entry.option, 1);
            argv[1] = argv[0];
            ++argv;
            --argc;
            return true;
        }
    }
    return false;
}

}  // namespace

int main(int argc, char *argv[]) {
    constexpr Program kProgram = programNamed(LANYARD_PROGRAM);
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
        printHelp(kProgram);
        return EXIT_SUCCESS;
    }
    if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
        std::printf("%s %s\n", kProgram.name, LANYARD_VERSION);
        return EXIT_SUCCESS;
    }
    while (takeLibraryOption(kProgram, argc, argv)) {
    }
    HiddenPassword password;
    if (kProgram.arguments == kLogin && !password.takeFrom(argc, argv)) {
        (void)std::fprintf(stderr, "%s: no password on standard input\n", kProgram.name);
        return EXIT_FAILURE;
    }
    return kProgram.run(kProgram.name, argc, argv);
}
