# 32-bit ARM with hardware floating point, by g++-arm-linux-gnueabihf: size_t, time_t and long have 32 bits.
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(machine arm-linux-gnueabihf)
set(architecture armhf)
include(${CMAKE_CURRENT_LIST_DIR}/debian_cross.cmake)
