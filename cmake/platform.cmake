# The OS layer below the library: this project's own port, or a vendor's libraries.
set(LANYARD_PLATFORM "port" CACHE STRING "OS layer: 'port' (this project's) or 'external' (a vendor's)")
set_property(CACHE LANYARD_PLATFORM PROPERTY STRINGS port external)
set(LANYARD_PLATFORM_INCLUDE_DIR "" CACHE PATH "external: folder with palcore.h, xbus.h, ciph.h and dbaccess.h")
set(LANYARD_PLATFORM_LIBRARIES "" CACHE STRING "external: libraries to link")

if(LANYARD_PLATFORM STREQUAL "port")
  set(LANYARD_PLATFORM_TARGET lanyard-platform)
  add_subdirectory(platform)
elseif(LANYARD_PLATFORM STREQUAL "external")
  if(NOT LANYARD_PLATFORM_LIBRARIES OR NOT LANYARD_PLATFORM_INCLUDE_DIR)
    message(FATAL_ERROR "LANYARD_PLATFORM=external needs LANYARD_PLATFORM_INCLUDE_DIR and LANYARD_PLATFORM_LIBRARIES")
  endif()
  set(LANYARD_PLATFORM_TARGET lanyard-platform-external)
  add_library(lanyard-platform-external INTERFACE)
  # A program of somebody else's finds the layer's headers its own way.
  target_include_directories(lanyard-platform-external SYSTEM INTERFACE
    $<BUILD_INTERFACE:${LANYARD_PLATFORM_INCLUDE_DIR}>)
  target_link_libraries(lanyard-platform-external INTERFACE ${LANYARD_PLATFORM_LIBRARIES})
  add_library(lanyard::platform ALIAS lanyard-platform-external)
else()
  message(FATAL_ERROR "LANYARD_PLATFORM is 'port' or 'external', not '${LANYARD_PLATFORM}'")
endif()
