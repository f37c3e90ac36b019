# 32-bit ARM with hardware floating point, by g++-arm-linux-gnueabihf: size_t, time_t and long have 32 bits.
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(machine arm-linux-gnueabihf)
set(architecture armhf)
# That GCC 7 passes some arguments otherwise than GCC 6 did.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
include(${CMAKE_CURRENT_LIST_DIR}/debian_cross.cmake)
