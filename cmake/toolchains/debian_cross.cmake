# What the toolchain files of Debian's cross compilers share. They set CMAKE_SYSTEM_PROCESSOR, machine (the
# name of the compilers and of the folders of libraries) and architecture (Debian's name of it).
set(CMAKE_SYSTEM_NAME Linux)
get_filename_component(_sysroot ${CMAKE_CURRENT_LIST_DIR}/../../build/sysroot-${architecture} ABSOLUTE)
set(LANYARD_SYSROOT ${_sysroot} CACHE PATH "Folder with headers and libraries of the machine")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES LANYARD_SYSROOT)

set(CMAKE_C_COMPILER ${machine}-gcc)
set(CMAKE_CXX_COMPILER ${machine}-g++)
set(CMAKE_SYSROOT ${LANYARD_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
