// Files, by the paths of the device.
#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include <palcore.h>

#include "platform/export.h"
#include "platform/root.h"

using namespace lanyard::port;

PAL_EXPORT FILE *palFileOpen(const char *path, const char *mode) {
    // After a comma fopen() takes the name of a character set, where no flag would be seen.
    std::array<char, 16> closeOnExec{};
    if (mode == nullptr || std::strlen(mode) + 2 > closeOnExec.size() ||
        std::strchr(mode, ',') != nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    const RootedPath rooted(path);
    if (rooted.get() == nullptr) {
        return nullptr;
    }
    (void)std::snprintf(closeOnExec.data(), closeOnExec.size(), "%se", mode);
    return std::fopen(rooted.get(), closeOnExec.data());
}

PAL_EXPORT char *palFileGets(char *buffer, int size, FILE *file) {
    if (buffer == nullptr || size < 1 || file == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    return std::fgets(buffer, size, file);
}

PAL_EXPORT int palFilePrintf(FILE *file, const char *format, ...) {
    if (file == nullptr) {
        errno = EINVAL;
        return -1;
    }
    va_list arguments;
    va_start(arguments, format);
    const int written = std::vfprintf(file, format, arguments);
    va_end(arguments);
    return written;
}

PAL_EXPORT int palFileClose(FILE *file) {
    if (file == nullptr) {
        errno = EINVAL;
        return -1;
    }
    return std::fclose(file) == 0 ? 0 : -1;
}

PAL_EXPORT int palUnlink(const char *path) {
    const RootedPath rooted(path);
    return rooted.get() == nullptr ? -1 : unlink(rooted.get());
}

PAL_EXPORT int palFileRename(const char *from, const char *to) {
    const RootedPath rootedFrom(from);
    const RootedPath rootedTo(to);
    return rootedFrom.get() == nullptr || rootedTo.get() == nullptr
               ? -1
               : std::rename(rootedFrom.get(), rootedTo.get());
}

PAL_EXPORT int palOpen(const char *path, int flags, int mode) {
    const RootedPath rooted(path);
    if (rooted.get() == nullptr) {
        return -1;
    }
    int fd = -1;
    do {
        fd = open(rooted.get(), flags | O_CLOEXEC, static_cast<mode_t>(mode));
    } while (fd == -1 && errno == EINTR);
    return fd;
}

PAL_EXPORT int palRead(int fd, void *buffer, uint32_t length) {
    const size_t most = std::min<uint32_t>(length, INT_MAX);
    ssize_t got = -1;
    do {
        got = read(fd, buffer, most);
    } while (got == -1 && errno == EINTR);
    return static_cast<int>(got);
}

PAL_EXPORT int palClose(int fd) {
    // Linux has closed the descriptor when it reports EINTR; trying again could close another's.
    return close(fd) == 0 || errno == EINTR ? 0 : -1;
}
