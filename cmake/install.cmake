# What is installed beside the programs: libraries, headers, a CMake package and a file for pkg-config.
include(CMakePackageConfigHelpers)

# An archive holds code, not what a compiler left for the linker.
if(NOT BUILD_SHARED_LIBS)
  set_target_properties(lanyard-radius PROPERTIES INTERPROCEDURAL_OPTIMIZATION OFF)
  if(TARGET lanyard-platform)
    set_target_properties(lanyard-platform PROPERTIES INTERPROCEDURAL_OPTIMIZATION OFF)
  endif()
endif()

install(TARGETS lanyard-radius ${LANYARD_PLATFORM_TARGET} EXPORT LanyardRadiusTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
include(${CMAKE_CURRENT_LIST_DIR}/install_headers.cmake)
install(FILES ${PROJECT_SOURCE_DIR}/etc/radius.dict ${PROJECT_SOURCE_DIR}/etc/radius.conf.sample
  DESTINATION ${CMAKE_INSTALL_DATADIR}/lanyard-radius)

set(_package ${CMAKE_INSTALL_LIBDIR}/cmake/LanyardRadius)
install(EXPORT LanyardRadiusTargets NAMESPACE LanyardRadius:: DESTINATION ${_package})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/LanyardRadiusConfig.cmake.in
  ${PROJECT_BINARY_DIR}/LanyardRadiusConfig.cmake INSTALL_DESTINATION ${_package})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/LanyardRadiusConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/LanyardRadiusConfig.cmake ${PROJECT_BINARY_DIR}/LanyardRadiusConfigVersion.cmake
  DESTINATION ${_package})

# A vendor's OS layer has its own ways to be found.
set(LANYARD_PC_REQUIRES libcrypto)
if(NOT LANYARD_MINIMAL)
  string(APPEND LANYARD_PC_REQUIRES " sqlite3")
endif()
set(LANYARD_PC_PLATFORM)
if(TARGET lanyard-platform)
  set(LANYARD_PC_PLATFORM -llanyard-platform)
endif()
file(RELATIVE_PATH LANYARD_PC_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(${CMAKE_CURRENT_LIST_DIR}/lanyard-radius.pc.in ${PROJECT_BINARY_DIR}/lanyard-radius.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/lanyard-radius.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
