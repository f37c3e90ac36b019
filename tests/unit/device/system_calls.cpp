#include "tests/unit/device/system_calls.h"

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>
#include <utility>

#include <dbaccess.h>
#include <palcore.h>

#include "tests/support/failing_call.h"

namespace lanyard::test {
namespace {

BusyHandler::Function &busyFunction() {
    static BusyHandler::Function function;
    return function;
}

}  // namespace

BusyHandler::BusyHandler(Function function) {
    busyFunction() = std::move(function);
}

BusyHandler::~BusyHandler() {
    busyFunction() = {};
}

}  // namespace lanyard::test

using lanyard::test::busyFunction;
using lanyard::test::following;
using lanyard::test::strikes;

int asprintf(char **text, const char *format, ...) noexcept {
    va_list arguments;
    va_start(arguments, format);
    const int length = strikes("asprintf") ? -1 : vasprintf(text, format, arguments);
    va_end(arguments);
    return length;
}

void *calloc(size_t count, size_t size) noexcept {
    size_t total = 0;
    if (strikes("calloc") || __builtin_mul_overflow(count, size, &total)) {
        errno = ENOMEM;
        return nullptr;
    }
    void *block = std::malloc(total);
    if (block != nullptr) {
        explicit_bzero(block, total);  // one that the compiler does not turn into calloc()
    }
    return block;
}

int fsync(int fd) {
    static auto *const real = following<decltype(fsync)>("fsync");
    return strikes("fsync") ? -1 : real(fd);
}

int palFileClose(FILE *file) {
    const int result = std::fclose(file);
    return strikes("palFileClose") ? -1 : result;
}

int sqliteBusyHandler(void *context, int count) {
    return busyFunction() ? busyFunction()(context, count) : 0;
}
