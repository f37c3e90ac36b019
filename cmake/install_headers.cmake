# The public headers of what the library has; those that include others include no others.
if(NOT LANYARD_MINIMAL)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/lanyard DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  return()
endif()

set(_absent "(eap|loop|mgmt|relay|sample|status)\\.h")
file(GLOB_RECURSE _headers RELATIVE ${PROJECT_SOURCE_DIR}/include CONFIGURE_DEPENDS
  ${PROJECT_SOURCE_DIR}/include/lanyard/*.h)
list(FILTER _headers EXCLUDE REGEX "/${_absent}$")
foreach(header ${_headers})
  file(READ ${PROJECT_SOURCE_DIR}/include/${header} _text)
  # The comment above an include, and the rows of the table in radius.h.
  string(REGEX REPLACE "\n(// [^\n]*\n)?#include <lanyard/radius/${_absent}>" "" _text "${_text}")
  string(REGEX REPLACE "\n [*] [|][^\n]*[|] ${_absent} +[|]" "" _text "${_text}")
  file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/include/${header} CONTENT "${_text}" @ONLY)
endforeach()
install(DIRECTORY ${PROJECT_BINARY_DIR}/include/lanyard DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
