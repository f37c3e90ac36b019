# lanyard_test(NAME [THREADS] LABEL unit|interop|e2e SOURCES ... [LIBRARIES ...])
#
# One GoogleTest program, run by ctest as one test. A program is one process, so a test that
# crashes takes only its own subsystem's run with it. THREADS marks those that use threads: they
# are what a build with ThreadSanitizer builds and runs.
find_package(GTest REQUIRED)

function(lanyard_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "THREADS" "LABEL" "SOURCES;LIBRARIES")
  add_executable(${name} ${arg_SOURCES})
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR})
  target_link_libraries(${name} PRIVATE
    lanyard-warnings lanyard-sanitizers ${arg_LIBRARIES} GTest::gtest GTest::gmock)
  if(LANYARD_SANITIZE MATCHES "thread" AND NOT arg_THREADS)
    set_target_properties(${name} PROPERTIES EXCLUDE_FROM_ALL ON)
    return()
  endif()
  add_test(NAME ${name} COMMAND ${name} --gtest_brief=1)
  set_tests_properties(${name} PROPERTIES LABELS ${arg_LABEL} TIMEOUT 120)
endfunction()
