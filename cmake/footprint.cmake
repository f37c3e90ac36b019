# What makes the library small, as an interface target; sanitizers want none of it.
include(CheckCSourceCompiles)
include(CheckLinkerFlag)

option(LANYARD_UNWIND_TABLES
  "Keep unwind tables in the library, for backtraces on a device that has no debug files (17 KiB)" OFF)

# Whether the figures of docs/performance.md hold: those of x86-64, with link-time optimisation.
set(LANYARD_IS_SMALL OFF)
if(CMAKE_INTERPROCEDURAL_OPTIMIZATION AND CMAKE_SYSTEM_PROCESSOR STREQUAL "x86_64" AND NOT LANYARD_UNWIND_TABLES
    AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND NOT LANYARD_SANITIZE)
  set(LANYARD_IS_SMALL ON)
endif()

add_library(lanyard-footprint INTERFACE)
if(LANYARD_SANITIZE)
  return()
endif()

target_compile_options(lanyard-footprint INTERFACE -ffunction-sections -fdata-sections)
target_link_options(lanyard-footprint INTERFACE -Wl,--gc-sections)
if(NOT LANYARD_UNWIND_TABLES)
  # At link time too, where the code is made. A debugger finds what it needs in the debug information.
  set(_options -fno-asynchronous-unwind-tables -fno-unwind-tables)
  target_compile_options(lanyard-footprint INTERFACE ${_options})
  target_link_options(lanyard-footprint INTERFACE ${_options})
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  set(_options -fno-plt -fno-align-functions -fno-align-jumps -fno-align-loops -fno-align-labels)
  target_compile_options(lanyard-footprint INTERFACE ${_options})
  target_link_options(lanyard-footprint INTERFACE ${_options} -flto-partition=one)
endif()

# Code and constants in pages of their own cost 8 KiB of padding.
check_linker_flag(C -Wl,-z,noseparate-code LANYARD_LINKS_NOSEPARATE_CODE)
if(LANYARD_LINKS_NOSEPARATE_CODE)
  target_link_options(lanyard-footprint INTERFACE -Wl,-z,noseparate-code)
endif()

# Relative relocations in a bit map. The loader of an older C library refuses such a library.
check_c_source_compiles("
  #include <features.h>
  #if !__GLIBC_PREREQ(2, 36)
  #error
  #endif
  int main(void) { return 0; }" LANYARD_LOADER_KNOWS_RELR)
check_linker_flag(C -Wl,-z,pack-relative-relocs LANYARD_LINKS_RELR)
if(LANYARD_LOADER_KNOWS_RELR AND LANYARD_LINKS_RELR)
  target_link_options(lanyard-footprint INTERFACE -Wl,-z,pack-relative-relocs)
endif()
