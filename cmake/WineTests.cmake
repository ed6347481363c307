# Tests are Windows programs: CTest runs them, and discovers their cases,
# through scripts/wine-run.sh (Wine of the build's architecture, in a private
# prefix inside the build tree).
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_SOURCE_DIR}/scripts/wine-run.sh ${ROOMCORE_ARCH})

# GoogleTest and GoogleMock, cross-built once per architecture.
set(GTEST_ROOT "${ROOMCORE_DEPS}/googletest" CACHE PATH "Cross-built GoogleTest")
if(NOT EXISTS ${GTEST_ROOT}/lib/libgtest.a)
  message(FATAL_ERROR "GoogleTest for MinGW (${ROOMCORE_ARCH}) not found in ${GTEST_ROOT}: run scripts/setup.sh")
endif()
foreach(lib gtest gtest_main gmock)
  add_library(${lib} STATIC IMPORTED)
  set_target_properties(${lib} PROPERTIES
    IMPORTED_LOCATION ${GTEST_ROOT}/lib/lib${lib}.a
    INTERFACE_INCLUDE_DIRECTORIES ${GTEST_ROOT}/include)
endforeach()
set_target_properties(gtest_main gmock PROPERTIES INTERFACE_LINK_LIBRARIES gtest)

include(GoogleTest)

# roomcore_add_tests(<name> SOURCES ... [UNIT] [LIBS ...] [PROPERTIES ...])
# Without UNIT the program talks to roomcore.dll through its exported
# interface, as a host does. With UNIT it links the library's objects
# directly, to unit-test classes that are not exported.
function(roomcore_add_tests name)
  cmake_parse_arguments(T "UNIT" "" "SOURCES;LIBS;PROPERTIES" ${ARGN})
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
    PROPERTIES TIMEOUT 120 ${T_PROPERTIES})
endfunction()
