// The NT-Response (RFC 2433 section A.5) comes from a program of the device, which leaves it in a
// file.
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>

#include <lanyard/radius/methods.h>
#include <palcore.h>

#include "methods/mschap_request.h"

namespace {

using lanyard::kNtResponseSize;

constexpr const char *kProgram = "/nexa2.0/bin/orvane_getNTResponse";
constexpr size_t kChallengeSize = 8;

struct SystemDeleter {
    void operator()(char *block) const { std::free(block); }
};

using SystemText = std::unique_ptr<char, SystemDeleter>;

// The file that the program writes for a user.
SystemText responsePath(const char *userName) {
    constexpr const char *kPrefix = "/tmp/mschap_";
    const size_t size = std::strlen(userName) + std::strlen(kPrefix) + 1;
    SystemText path(static_cast<char *>(std::malloc(size)));
    if (path) {
        std::snprintf(path.get(), size, "%s%s", kPrefix, userName);
    }
    return path;
}

// Runs the program. An argument vector carries text, so the challenge is terminated; the argument
// vector's type is the platform's, nothing is written through it.
int runProgram(const char *password, const uint8_t *challenge, const char *path) {
    std::array<char, kChallengeSize + 1> challengeText{};
    std::memcpy(challengeText.data(), challenge, kChallengeSize);
    const std::array<char *, 5> arguments = {const_cast<char *>(kProgram),
                                             const_cast<char *>(password), challengeText.data(),
                                             const_cast<char *>(path), nullptr};
    return palCmdExecArgv(arguments.data(), 0, 0);
}

}  // namespace

int radMschapNtResponse(const char *password, uint8_t *ntResponse, const uint8_t *challenge,
                        const char *userName) {
    // A name with a slash would lead into another folder.
    if (!password || !ntResponse || !challenge || !userName || std::strchr(userName, '/')) {
        return -1;
    }
    const auto path = responsePath(userName);
    if (!path) {
        return 0;
    }
    if (runProgram(password, challenge, path.get()) == -1) {
        return -1;
    }
    FILE *file = palFileOpen(path.get(), "r");
    if (!file) {
        return 0;
    }
    // Where the file ends early the end-of-file value stands in the response; the server refuses
    // it.
    for (uint8_t &octet : std::span(ntResponse, kNtResponseSize)) {
        octet = static_cast<uint8_t>(std::fgetc(file));
    }
    palFileClose(file);
    return palUnlink(path.get());
}
