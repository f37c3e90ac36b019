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
bool refuse(const SampleContract &contract, char *argv[]) {
    const char *program = shownText(argv ? argv[0] : nullptr);
    if (contract.usageLevel == kPrinted) {
        std::printf("Usage: %s [-v] [ -f confFile] %s\n", program, contract.arguments);
    } else {
        radLogAs(contract.function, contract.usageLevel, "Usage: %s [-v] [ -f confFile] %s\n",
                 program, contract.arguments);
    }
    return false;
}

bool refuseMissingValue(const SampleContract &contract) {
    radLogAs(contract.function, contract.missingValueLevel, "ERROR: option value not specified \n");
    return false;
}

void copyBounded(std::span<char> destination, const char *source) {
    const size_t length = strnlen(source, destination.size() - 1);
    std::memcpy(destination.data(), source, length);
    destination[length] = '\0';
}

}  // namespace

SampleArguments::SampleArguments() {
    copyBounded(path_, radLibDefConf());
}

SampleArguments::~SampleArguments() {
    explicit_bzero(password_.data(), password_.size());
}

bool SampleArguments::parseOptions(const SampleContract &contract, int argc, char *argv[]) {
    optind = 0;  // from the start, also after another parser
    const bool parsed = readOptions(contract, argc, argv);
    firstPositional_ = optind;
    optind = 0;  // getopt() must not go on in an argument vector that may be gone
    return parsed;
}

bool SampleArguments::readOptions(const SampleContract &contract, int argc, char *argv[]) {
    for (int option = getopt(argc, argv, contract.options); option != -1;
         option = getopt(argc, argv, contract.options)) {
        switch (option) {
            case 'v':
                break;
            case 'f':
                if (std::strlen(optarg) >= path_.size()) {
                    return refuse(contract, argv);
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
                               std::strchr(contract.options, optopt)
                           ? refuseMissingValue(contract)
                           : refuse(contract, argv);
        }
    }
    return true;
}

bool SampleArguments::parseLogin(const SampleContract &contract, int argc, char *argv[]) {
    constexpr int kFewestArguments = 3;
    if (argc < kFewestArguments) {
        return refuse(contract, argv);
    }
    if (!parseOptions(contract, argc, argv)) {
        return false;
    }
    if (argc - firstPositional_ < 2) {
        return refuse(contract, argv);
    }
    copyBounded(userName_, argv[firstPositional_]);
    copyBounded(password_, argv[firstPositional_ + 1]);
    return true;
}

bool SampleArguments::startLibrary(const SampleContract &contract) const {
    if (radLibInit(path_.data()) == -1) {
        radLogAs(contract.function, contract.startLevel, "Unable to initialize radius \n");
        return false;
    }
    return true;
}

}  // namespace lanyard
