// The command line that the sample programs share.
#include "login/sample_arguments.h"

#include <cstdio>
#include <cstring>
#include <span>
#include <unistd.h>

#include <lanyard/radius/frame.h>

#include "base/log.h"
#include "base/text.h"

namespace lanyard {
namespace {

// Says how the program is used, and that it was used otherwise.
bool refuse(const SampleStyle &style, char *argv[]) {
    const char *program = shownText(argv ? argv[0] : nullptr);
    if (style.usageLevel == 0) {
        std::printf("Usage: %s [-v] [ -f confFile] %s\n", program, style.arguments);
    } else {
        radLogAs(style.function, style.usageLevel, "Usage: %s [-v] [ -f confFile] %s\n", program,
                 style.arguments);
    }
    return false;
}

bool refuseMissingValue(const SampleStyle &style) {
    radLogAs(style.function, style.missingValueLevel, "ERROR: option value not specified \n");
    return false;
}

void copyBounded(std::span<char> destination, const char *source) {
    const size_t length = strnlen(source, destination.size() - 1);
    std::memcpy(destination.data(), source, length);
    destination[length] = '\0';
}

}  // namespace

SampleStyle loginStyle(const char *function, const char *options) {
    return {.function = function,
            .options = options,
            .arguments = "<username> <password>",
            .usageLevel = 0,
            .missingValueLevel = kLogError,
            .startLevel = kLogError};
}

SampleArguments::SampleArguments() {
    copyBounded(path_, radLibDefConf());
}

SampleArguments::~SampleArguments() {
    explicit_bzero(password_.data(), password_.size());
}

bool SampleArguments::parseOptions(const SampleStyle &style, int argc, char *argv[]) {
    optind = 0;  // from the start, whoever parsed before
    const bool parsed = readOptions(style, argc, argv);
    firstPositional_ = optind;
    optind = 0;  // getopt() must not go on in an argument vector that may be gone
    return parsed;
}

bool SampleArguments::readOptions(const SampleStyle &style, int argc, char *argv[]) {
    for (int option = getopt(argc, argv, style.options); option != -1;
         option = getopt(argc, argv, style.options)) {
        switch (option) {
            case 'v':
                break;
            case 'f':
                if (std::strlen(optarg) >= path_.size()) {
                    return refuse(style, argv);
                }
                copyBounded(path_, optarg);
                break;
            case 's':
                status_ = static_cast<uint32_t>(decimalValue(optarg));
                break;
            default:
                // -u and -p of the MS-CHAP programs are known to getopt() but lead here as well, on
                // purpose: the user name and the password are always positional.
                return option == '?' && (optopt == 'f' || optopt == 's') &&
                               std::strchr(style.options, optopt)
                           ? refuseMissingValue(style)
                           : refuse(style, argv);
        }
    }
    return true;
}

bool SampleArguments::parseLogin(const SampleStyle &style, int argc, char *argv[]) {
    constexpr int kFewestArguments = 3;
    if (argc < kFewestArguments) {
        return refuse(style, argv);
    }
    if (!parseOptions(style, argc, argv)) {
        return false;
    }
    if (argc - firstPositional_ < 2) {
        return refuse(style, argv);
    }
    copyBounded(userName_, argv[firstPositional_]);
    copyBounded(password_, argv[firstPositional_ + 1]);
    return true;
}

bool SampleArguments::startLibrary(const SampleStyle &style) const {
    if (radLibInit(path_.data()) == -1) {
        radLogAs(style.function, style.startLevel, "Unable to initialize radius \n");
        return false;
    }
    return true;
}

}  // namespace lanyard
