// Files, by their namesakes in the C library.
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <palcore.h>

FILE *palFileOpen(const char *path, const char *mode) {
    char closeOnExec[8];
    if (path == NULL || mode == NULL || strchr(mode, ',') != NULL ||
        (size_t)snprintf(closeOnExec, sizeof closeOnExec, "%se", mode) >= sizeof closeOnExec) {
        errno = EINVAL;
        return NULL;
    }
    return fopen(path, closeOnExec);
}

char *palFileGets(char *buffer, int size, FILE *file) {
    return buffer == NULL || file == NULL || size < 1 ? NULL : fgets(buffer, size, file);
}

int palFilePrintf(FILE *file, const char *format, ...) {
    if (file == NULL) {
        return -1;
    }
    va_list arguments;
    va_start(arguments, format);
    const int count = vfprintf(file, format, arguments);
    va_end(arguments);
    return count;
}

int palFileClose(FILE *file) {
    if (file == NULL) {
        errno = EINVAL;
        return -1;
    }
    return fclose(file) == 0 ? 0 : -1;
}

int palUnlink(const char *path) {
    return unlink(path);
}

int palOpen(const char *path, int flags, int mode) {
    int fd;
    do {
        fd = open(path, flags | O_CLOEXEC, mode);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

int palRead(int fd, void *buffer, uint32_t length) {
    ssize_t count;
    do {
        count = read(fd, buffer, length);
    } while (count < 0 && errno == EINTR);
    return (int)count;
}

int palClose(int fd) {
    return close(fd);
}
