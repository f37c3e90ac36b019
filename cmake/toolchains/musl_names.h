// What g++'s headers, made for the GNU C library, want of musl's. They are only read: nothing is linked.
#pragma once

#include <locale.h>

#define __GLIBC_PREREQ(major, minor) 0
#define __locale_t locale_t
enum {
    _ISupper = 1,
    _ISlower = 2,
    _ISalpha = 4,
    _ISdigit = 8,
    _ISxdigit = 16,
    _ISspace = 32,
    _ISprint = 64,
    _ISblank = 128,
    _IScntrl = 256,
    _ISpunct = 512,
    _ISalnum = 1024,
    _ISgraph = 2048
};

#include <bits/c++config.h>
#undef _GLIBCXX_USE_PTHREAD_COND_CLOCKWAIT
#undef _GLIBCXX_USE_PTHREAD_MUTEX_CLOCKLOCK
#undef _GLIBCXX_USE_PTHREAD_RWLOCK_CLOCKLOCK
