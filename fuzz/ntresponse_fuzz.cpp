// The arguments of the NT-Response program, which ends them at a NUL each. Its file is one in memory.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

#include "fuzz/environment.h"

// What the program tells its caller goes nowhere.
static FILE *const nowhere = std::fopen("/dev/null", "w");
#undef stderr
#define stderr nowhere
#define puts(text) fputs(text, nowhere)
#define main ntResponseMain
#include "tools/ntresponse.cpp"  // NOLINT(bugprone-suspicious-include): its main() is called
#undef main

namespace {

using namespace lanyard::fuzz;

enum class FileFault { kNone, kNotRemoved, kNotOpened };

constexpr size_t kResponseSize = 24;

int file = -1;
int opened = 0;
FileFault fault = FileFault::kNone;

// Whether a password has an NT hash: UTF-8 (RFC 3629) of at most 256 UTF-16 units. OpenSSL's reader lets
// surrogates pass, as the program always has.
bool hasHash(const std::string &password) {
    size_t units = 0;
    for (size_t at = 0; at < password.size();) {
        const auto first = static_cast<uint8_t>(password[at]);
        const size_t more = first < 0x80 ? 0 : first < 0xe0 ? 1 : first < 0xf0 ? 2 : 3;
        if ((first >= 0x80 && first < 0xc0) || first >= 0xf8 || at + more >= password.size()) {
            return false;
        }
        uint32_t character = more == 0 ? first : first & (0x3fU >> more);
        for (size_t i = 1; i <= more; ++i) {
            const auto next = static_cast<uint8_t>(password[at + i]);
            if ((next & 0xc0) != 0x80) {
                return false;
            }
            character = character << 6 | (next & 0x3f);
        }
        static constexpr std::array<uint32_t, 4> kLeast = {0, 0x80, 0x800, 0x10000};
        if (character < kLeast[more] || character > 0x10ffff) {
            return false;
        }
        units += character > 0xffff ? 2 : 1;
        at += more + 1;
    }
    return units <= 256;
}

}  // namespace

int palUnlink(const char * /*path*/) {
    errno = fault == FileFault::kNotRemoved ? EACCES : ENOENT;
    return -1;
}

int palOpen(const char * /*path*/, int /*flags*/, int /*mode*/) {
    if (fault == FileFault::kNotOpened) {
        errno = EACCES;
        return -1;
    }
    ++opened;
    return dup(file);
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (file < 0) {
        file = memfd_create("response", MFD_CLOEXEC);
    }
    Script script(data, size);
    fault = static_cast<FileFault>(script.below(3));
    Bytes rest = script.rest();
    std::vector<std::vector<char>> texts;
    for (size_t at = 0; at < rest.size() && texts.size() < 6;) {
        texts.push_back(textFrom(rest.data() + at, rest.size() - at));
        at += texts.back().size();
    }
    std::vector<char> name = {'n', 't', '\0'};
    std::vector<char *> arguments = {name.data()};
    for (std::vector<char> &text : texts) {
        arguments.push_back(text.data());
    }
    arguments.push_back(nullptr);
    const std::vector<std::vector<char>> before = texts;

    opened = 0;
    require(ftruncate(file, 0) == 0 && lseek(file, 0, SEEK_SET) == 0, "the file is empty");
    const int status = ntResponseMain(static_cast<int>(arguments.size()) - 1, arguments.data());
    const off_t written = lseek(file, 0, SEEK_END);
    const bool isRight = before.size() == 3 && hasHash(before[0].data()) &&
                         std::strlen(before[1].data()) == 8 && fault == FileFault::kNone;
    const bool isQuestion = before.size() == 1 && (std::strcmp(before[0].data(), "--help") == 0 ||
                                                   std::strcmp(before[0].data(), "--version") == 0);
    require((status == 0) == (isRight || isQuestion), "what is right is done");
    require(written == (isRight ? static_cast<off_t>(kResponseSize) : 0),
            "a response is written whole or not at all");
    require(opened == (isRight ? 1 : 0), "the file is opened for a response alone");
    if (before.size() == 3) {
        require(std::all_of(texts[0].begin(), texts[0].end(), [](char c) { return c == '\0'; }),
                "the password is wiped");
    }
    return 0;
}
