# Warnings and sanitizers, as interface targets that every target of the project links privately.
add_library(lanyard-warnings INTERFACE)
target_compile_options(lanyard-warnings INTERFACE
  -Wall -Wextra -Wconversion -Wshadow -Wformat=2)

# On where we know the compiler: another one's new warning must not keep anybody from building.
option(LANYARD_WERROR "Treat warnings as errors" OFF)
if(LANYARD_WERROR)
  target_compile_options(lanyard-warnings INTERFACE -Werror)
endif()

set(LANYARD_SANITIZE "" CACHE STRING "Sanitizers to build with, as -fsanitize= takes them")
add_library(lanyard-sanitizers INTERFACE)
if(LANYARD_SANITIZE)
  set(_sanitize -fsanitize=${LANYARD_SANITIZE} -fno-sanitize-recover=all)
  target_compile_options(lanyard-sanitizers INTERFACE ${_sanitize} -fno-omit-frame-pointer)
  target_link_options(lanyard-sanitizers INTERFACE ${_sanitize})
endif()
