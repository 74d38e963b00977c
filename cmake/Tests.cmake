if(BOOTLUME_TESTS)
  find_package(GTest REQUIRED)
  include(GoogleTest)
endif()

# What every test program links. Tests are compiled far more often than they run: only what they test is
# optimized.
add_library(project_tests INTERFACE)
target_compile_options(project_tests INTERFACE -O0)
target_link_libraries(project_tests INTERFACE project_warnings)

# test_program(NAME SOURCES... LIBRARIES libs...): one GoogleTest program below tests/. Four of its sources
# are compiled at a time: GoogleTest's headers take longer than what includes them.
function(test_program name)
  cmake_parse_arguments(arg "" "" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} GTest::gmock_main project_tests
                                        Threads::Threads)
  set_target_properties(${name} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests
    UNITY_BUILD ON
    UNITY_BUILD_BATCH_SIZE 4)
endfunction()

# project_test(NAME SOURCES... LIBRARIES libs...): a program whose tests are CTest's, one by one.
function(project_test name)
  test_program(${name} ${ARGN})
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT 120)
endfunction()

# desk_preload(VARIABLE): what LD_PRELOAD must hold for a program that is to run on the virtual device.
# A sanitizer's run-time library must come before every other preloaded library.
function(desk_preload variable)
  if(CMAKE_BINARY_DIR MATCHES "[ :]")
    message(FATAL_ERROR "${CMAKE_BINARY_DIR}: the dynamic loader preloads nothing whose path holds a blank or a colon")
  endif()
  set(preload $<TARGET_FILE:virtual-device>)
  foreach(sanitizer address thread)
    if(BOOTLUME_SANITIZE MATCHES ${sanitizer} AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
      string(SUBSTRING ${sanitizer} 0 1 letter)
      execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=lib${letter}san.so
                      OUTPUT_VARIABLE runtime OUTPUT_STRIP_TRAILING_WHITESPACE)
      set(preload ${runtime}:${preload})
    endif()
  endforeach()
  set(${variable} ${preload} PARENT_SCOPE)
endfunction()
