// Memory of the process that runs out on order (FailingCall): malloc, calloc, realloc, and the operator new
// that says so with a null pointer. The one that would throw never fails: the tests' own tools use it too.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

#include "tests/support/failing_call.h"

// The allocator behind these functions: a sanitizer's, where there is one. No lookup at run time, because
// that allocates.
extern "C" {
void *__libc_malloc(size_t size);
void *__libc_realloc(void *block, size_t size);
[[gnu::weak]] void *__interceptor_malloc(size_t size);
[[gnu::weak]] void *__interceptor_realloc(void *block, size_t size);
}

namespace {

void *take(size_t size) {
    return __interceptor_malloc != nullptr ? __interceptor_malloc(size) : __libc_malloc(size);
}

void *takeUnlessStruck(const char *function, size_t size) {
    return lanyard::test::strikes(function) ? nullptr : take(size);
}

void *takeOrThrow(size_t size) {
    void *block = take(size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

}  // namespace

void *malloc(size_t size) noexcept {
    return takeUnlessStruck("malloc", size);
}

void *calloc(size_t count, size_t size) noexcept {
    size_t total = 0;
    if (__builtin_mul_overflow(count, size, &total)) {
        errno = ENOMEM;
        return nullptr;
    }
    void *block = takeUnlessStruck("calloc", total);
    if (block != nullptr) {
        explicit_bzero(block, total);  // one that the compiler does not turn into calloc()
    }
    return block;
}

void *realloc(void *block, size_t size) noexcept {
    if (lanyard::test::strikes("realloc")) {
        return nullptr;
    }
    return __interceptor_realloc != nullptr ? __interceptor_realloc(block, size)
                                            : __libc_realloc(block, size);
}

void *operator new(size_t size) {
    return takeOrThrow(size);
}

void *operator new[](size_t size) {
    return takeOrThrow(size);
}

void *operator new(size_t size, const std::nothrow_t & /*tag*/) noexcept {
    return takeUnlessStruck("operator new", size);
}

void *operator new[](size_t size, const std::nothrow_t & /*tag*/) noexcept {
    return takeUnlessStruck("operator new", size);
}

void operator delete(void *block) noexcept {
    std::free(block);
}

void operator delete[](void *block) noexcept {
    std::free(block);
}

void operator delete(void *block, size_t /*size*/) noexcept {
    std::free(block);
}

void operator delete[](void *block, size_t /*size*/) noexcept {
    std::free(block);
}
