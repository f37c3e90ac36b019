# lanyard_test(NAME [THREADS] [HEADERS] LABEL unit|interop|e2e SOURCES ... [LIBRARIES ...])
#
# One GoogleTest program, run by ctest as one test. A program is one process, so a test that
# crashes takes only its own subsystem's run with it.
#
#   THREADS  uses threads: what a build with ThreadSanitizer builds and runs.
#   HEADERS  tests code of headers, which UndefinedBehaviorSanitizer then has to see in the test itself. All
#            other tests compile in two thirds of the time without it; what they call is checked all the same.
#
# The target outer-tests builds what is not labelled unit: tests of the whole system and of what is shipped.
find_package(GTest REQUIRED)

add_custom_target(outer-tests)

function(lanyard_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "THREADS;HEADERS" "LABEL" "SOURCES;LIBRARIES")
  add_executable(${name} ${arg_SOURCES})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${name} PRIVATE
    lanyard-warnings lanyard-sanitizers ${arg_LIBRARIES} GTest::gtest GTest::gmock)
  if(LANYARD_SANITIZE MATCHES "undefined" AND NOT arg_HEADERS)
    set_property(SOURCE ${arg_SOURCES} PROPERTY COMPILE_OPTIONS -fno-sanitize=undefined)
  endif()
  if(NOT arg_LABEL STREQUAL "unit")
    add_dependencies(outer-tests ${name})
  endif()
  if(LANYARD_SANITIZE MATCHES "thread" AND NOT arg_THREADS)
    set_target_properties(${name} PROPERTIES EXCLUDE_FROM_ALL ON)
    return()
  endif()
  add_test(NAME ${name} COMMAND ${name} --gtest_brief=1)
  set_tests_properties(${name} PROPERTIES LABELS ${arg_LABEL} TIMEOUT 120)
endfunction()
