# Tests are Windows programs: CTest runs them, and discovers their cases,
# through scripts/wine-run.sh (Wine in a private prefix inside the build tree).
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_SOURCE_DIR}/scripts/wine-run.sh)

set(GTEST_SOURCE_DIR /usr/src/googletest CACHE PATH "GoogleTest sources (Debian's googletest package)")
if(NOT EXISTS ${GTEST_SOURCE_DIR}/CMakeLists.txt)
  message(FATAL_ERROR "GoogleTest sources not found in ${GTEST_SOURCE_DIR}: run scripts/setup.sh")
endif()
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
set(gtest_disable_pthreads OFF CACHE BOOL "" FORCE)
add_subdirectory(${GTEST_SOURCE_DIR} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)

include(GoogleTest)

# roomcore_add_tests(<name> SOURCES ... [UNIT] [LIBS ...])
# Without UNIT the program talks to roomcore.dll through its exported
# interface, as a host does. With UNIT it links the library's objects
# directly, to unit-test classes that are not exported.
function(roomcore_add_tests name)
  cmake_parse_arguments(T "UNIT" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${T_SOURCES})
  target_compile_options(${name} PRIVATE ${ROOMCORE_WARNINGS})
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR} ${CMAKE_SOURCE_DIR}/tests)
  if(T_UNIT)
    target_link_libraries(${name} PRIVATE roomcore_objects)
  else()
    target_link_libraries(${name} PRIVATE roomcore)
    target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR}/include)
  endif()
  target_link_libraries(${name} PRIVATE ${T_LIBS} roomcore_test_support gmock gtest_main)
  gtest_discover_tests(${name}
    TEST_PREFIX "${name}."
    DISCOVERY_MODE PRE_TEST
    DISCOVERY_TIMEOUT 60
    WORKING_DIRECTORY ${CMAKE_BINARY_DIR}/bin
    PROPERTIES TIMEOUT 120)
endfunction()
