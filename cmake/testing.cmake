# lanyard_test(NAME [THREADS] [HEADERS] LABEL unit|interop|e2e [SHARDS n] [COST n] SOURCES ... [LIBRARIES ...])
#
# One GoogleTest program, run by ctest as one test. A program is one process, so a test that
# crashes takes only its own subsystem's run with it.
#
#   THREADS  uses threads: labelled "threads" as well, and what a build with ThreadSanitizer builds and runs.
#   HEADERS  tests code of headers, which UndefinedBehaviorSanitizer then has to see in the test itself. All
#            other tests compile in two thirds of the time without it; what they call is checked all the same.
#   SHARDS   waits most of the time: ctest runs it as n tests beside each other, NAME_1 to NAME_n, each with
#            its share. Its tests must not disturb each other.
#   COST     the seconds that it takes, if these are many: the dearest start first.
#
# The sources of a program are compiled together, which takes a quarter of the time that they take one by
# one: most of it goes into headers and templates that they share. So a test file keeps its names in a
# namespace of its own, lanyard::test::<file>, and with -DLANYARD_UNITY_BUILD=OFF each file is compiled
# alone, as clang-tidy wants them.
#
# The target unit-tests builds what is labelled unit, outer-tests what is not: tests of the whole system and of
# what is shipped.
# The target thread-tests builds what is labelled threads.
find_package(GTest REQUIRED)

set(CMAKE_UNITY_BUILD ${LANYARD_UNITY_BUILD})

# Linked after lanyard-sanitizers, it takes UndefinedBehaviorSanitizer out of what they say.
add_library(lanyard-test-without-ubsan INTERFACE)
if(LANYARD_SANITIZE MATCHES "undefined")
  target_compile_options(lanyard-test-without-ubsan INTERFACE -fno-sanitize=undefined)
endif()

set(LANYARD_TEST_TIMEOUT 120 CACHE STRING "Seconds that a test program may take")

add_custom_target(unit-tests)
add_custom_target(outer-tests)
add_custom_target(thread-tests)

function(lanyard_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "THREADS;HEADERS" "LABEL;SHARDS;COST" "SOURCES;LIBRARIES")
  add_executable(${name} ${arg_SOURCES})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${name} PRIVATE
    lanyard-warnings lanyard-sanitizers ${arg_LIBRARIES} GTest::gtest GTest::gmock)
  if(NOT arg_HEADERS)
    target_link_libraries(${name} PRIVATE lanyard-test-without-ubsan)
  endif()
  # A source of the product says what it uses by itself.
  set(product_sources ${arg_SOURCES})
  list(FILTER product_sources INCLUDE REGEX "^${PROJECT_SOURCE_DIR}/(src|platform|tools)/")
  set_property(SOURCE ${product_sources} PROPERTY SKIP_UNITY_BUILD_INCLUSION ON)
  if(arg_LABEL STREQUAL "unit")
    add_dependencies(unit-tests ${name})
  else()
    add_dependencies(outer-tests ${name})
  endif()
  set(labels ${arg_LABEL})
  if(arg_THREADS)
    add_dependencies(thread-tests ${name})
    list(APPEND labels threads)
  endif()
  if(LANYARD_SANITIZE MATCHES "thread" AND NOT arg_THREADS)
    set_target_properties(${name} PROPERTIES EXCLUDE_FROM_ALL ON)
    return()
  endif()
  if(NOT arg_COST)
    set(arg_COST 0)
  endif()
  if(arg_SHARDS)
    foreach(shard RANGE 1 ${arg_SHARDS})
      math(EXPR index "${shard} - 1")
      add_test(NAME ${name}_${shard} COMMAND ${name} --gtest_brief=1)
      set_tests_properties(${name}_${shard} PROPERTIES
        LABELS "${labels}" TIMEOUT ${LANYARD_TEST_TIMEOUT} COST ${arg_COST}
        ENVIRONMENT "GTEST_TOTAL_SHARDS=${arg_SHARDS};GTEST_SHARD_INDEX=${index}")
    endforeach()
    return()
  endif()
  add_test(NAME ${name} COMMAND ${name} --gtest_brief=1)
  set_tests_properties(${name} PROPERTIES LABELS "${labels}" TIMEOUT ${LANYARD_TEST_TIMEOUT} COST ${arg_COST})
endfunction()

# lanyard_interpose(TARGET SYMBOL...)
#
# The program, or every program that links the library TARGET, defines these functions itself and exports
# them: shared libraries call them in place of their own or those of the libraries below them.
function(lanyard_interpose target)
  set(options ${ARGN})
  list(TRANSFORM options PREPEND LINKER:--export-dynamic-symbol=)
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "EXECUTABLE")
    target_link_options(${target} PRIVATE ${options})
  else()
    target_link_options(${target} INTERFACE ${options})
  endif()
endfunction()
