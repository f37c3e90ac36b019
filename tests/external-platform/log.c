// The module debug log, on standard error: levels 4, 8 and 16, a line with one call.
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <palcore.h>

enum { kShown = 4 | 8 | 16, kLongest = 1000 };

// Whatever could drive a terminal or forge a line becomes a question mark.
static void put(char *line, size_t length) {
    for (size_t i = 0; i < length; ++i) {
        if (line[i] < ' ' || line[i] > '~') {
            line[i] = '?';
        }
    }
    line[length] = '\n';
    (void)!write(STDERR_FILENO, line, length + 1);
}

void palModuleDebug(int module, int level, const char *function, int line, const char *format,
                    ...) {
    if ((level & kShown) == 0) {
        return;
    }
    const int error = errno;
    char text[kLongest + 1];
    int begin = snprintf(text, kLongest, "%d %d %s:%d ", module, level, function, line);
    begin = begin < kLongest ? begin : kLongest - 1;
    va_list arguments;
    va_start(arguments, format);
    (void)vsnprintf(text + begin, (size_t)(kLongest - begin), format, arguments);
    va_end(arguments);
    size_t length = strlen(text);
    if (length > 0 && text[length - 1] == '\n') {
        --length;
    }
    put(text, length);
    errno = error;
}

// Of a dump the title: bytes are for level 256, which is never shown.
void palModuleDebugHex(int module, int level, const char *title, const void *data, int length) {
    (void)data;
    palModuleDebug(module, level, title, length, "%s", "bytes");
}
