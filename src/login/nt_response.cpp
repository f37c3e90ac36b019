// The NT-Response (RFC 2433 section A.5) comes from a program of the device, which leaves it in a
// file, or is computed here where the host asked for it.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <openssl/crypto.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include <lanyard/radius/frame.h>
#include <lanyard/radius/methods.h>
#include <palcore.h>

#include "base/descriptor.h"
#include "base/log.h"
#include "base/text.h"
#include "login/nt_response_compute.h"
#include "login/nt_response_lock.h"

namespace lanyard {
namespace {

constexpr const char *kProgram = "/nexa2.0/bin/orvane_getNTResponse";

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
    std::array<char, kNtChallengeSize + 1> challengeText{};
    std::memcpy(challengeText.data(), challenge, kNtChallengeSize);
    const std::array<char *, 5> arguments = {const_cast<char *>(kProgram),
                                             const_cast<char *>(password), challengeText.data(),
                                             const_cast<char *>(path), nullptr};
    return palCmdExecArgv(arguments.data(), 0, 0);
}

// Whether nothing lies at the path. What an earlier run or another user has left there would pass
// for the response of this run.
bool clear(const char *path) {
    return palUnlink(path) == 0 || errno == ENOENT || errno == ENOTDIR || errno == ENAMETOOLONG;
}

// Opens what the program has left, if no other user can have put it there.
Descriptor openResponse(const char *path, struct stat &status) {
    Descriptor file(palOpen(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, 0));
    const bool isLink = !file.isOpen() && errno == ELOOP;
    const bool isOurs = file.isOpen() && fstat(file.get(), &status) == 0 &&
                        S_ISREG(status.st_mode) && status.st_nlink == 1 &&
                        (status.st_uid == geteuid() || status.st_uid == 0);
    if (isLink || (file.isOpen() && !isOurs)) {
        radLogAs("radMschapNtResponse", kLogError,
                 "%s is not read: it is no file of this user or root alone\n", path);
    }
    return isOurs ? std::move(file) : Descriptor();
}

// Where the file ends early the end-of-file value stands in the response; the server refuses it.
NtResponse readResponse(const Descriptor &file) {
    NtResponse response{};
    size_t size = 0;
    for (int got = 1; got > 0 && size < response.size(); size += static_cast<size_t>(got)) {
        got = std::max(0, palRead(file.get(), response.data() + size,
                                  static_cast<uint32_t>(response.size() - size)));
    }
    std::fill(response.begin() + size, response.end(), static_cast<uint8_t>(EOF));
    return response;
}

}  // namespace
}  // namespace lanyard

using namespace lanyard;

int radMschapNtResponse(const char *password, uint8_t *ntResponse, const uint8_t *challenge,
                        const char *userName) {
    if (!password || !ntResponse || !challenge || !userName) {
        return -1;
    }
    if (radOptionGet(RAD_OPTION_BUILTIN_NT_RESPONSE) != 0) {
        computeNtResponse(password, challenge, ntResponse);
        return 0;
    }
    // A name with a slash would lead into another folder.
    if (std::strchr(userName, '/')) {
        return -1;
    }
    const auto path = responsePath(userName);
    if (!path) {
        return 0;
    }
    // Without these the response could be that of another login, which the server would accept.
    const NtResponseLock lock(userName);
    if (!lock.isHeld()) {
        radLog(kLogError,
               "no lock for %s: another login of this name hangs, or this user has no "
               "folder of its own\n",
               path.get());
        return 0;
    }
    if (!clear(path.get())) {
        radLog(kLogError, "%s cannot be removed: %s\n", path.get(), ErrorText(errno).text());
        return 0;
    }
    if (runProgram(password, challenge, path.get()) == -1) {
        return -1;
    }
    struct stat status {};
    Descriptor file = openResponse(path.get(), status);
    if (!file.isOpen()) {
        return 0;
    }
    NtResponse response = readResponse(file);
    file.reset();
    const int removed = palUnlink(path.get());
    // A file of root's that this user cannot remove may come from a login of root's.
    if (removed == 0 || status.st_uid == geteuid()) {
        std::copy(response.begin(), response.end(), ntResponse);
    }
    OPENSSL_cleanse(response.data(), response.size());
    return removed;
}
