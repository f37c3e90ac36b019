// Marks memory that nobody may touch for AddressSanitizer. Nothing without it.
#ifndef LANYARD_PLATFORM_POISON_H
#define LANYARD_PLATFORM_POISON_H

// The compiler's header knows whether the sanitizer is on; a compiler without one has no header.
#if __has_include(<sanitizer/asan_interface.h>)
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(address, size) ((void)(address), (void)(size))
#define ASAN_UNPOISON_MEMORY_REGION(address, size) ((void)(address), (void)(size))
#endif

#endif
