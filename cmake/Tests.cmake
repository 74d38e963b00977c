# project_test(NAME SOURCES... LIBRARIES libs...): one GoogleTest program below tests/, run by CTest.
if(BOOTLUME_TESTS)
  find_package(GTest REQUIRED)
  include(GoogleTest)
endif()

function(project_test name)
  if(NOT BOOTLUME_TESTS)
    return()
  endif()
  cmake_parse_arguments(arg "" "" "SOURCES;LIBRARIES;PROPERTIES" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} GTest::gmock_main project_warnings
                                        Threads::Threads)
  set_target_properties(${name} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT 120 ${arg_PROPERTIES})
endfunction()
