# IBM Z, by g++-s390x-linux-gnu: 64 bits, the most significant byte first.
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(machine s390x-linux-gnu)
set(architecture s390x)
include(${CMAKE_CURRENT_LIST_DIR}/debian_cross.cmake)
