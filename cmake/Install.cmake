# What `cmake --install` of a build tree gives: the SDK of one architecture,
# laid out as a Windows C++ SDK is, in two components.
#
#   roomcore (the library)
#     include/roomcore/*.h            the public headers
#     bin/roomcore.dll                and the FFmpeg DLLs that it imports
#     lib/libroomcore.dll.a           the import library, and roomcore.def
#     lib/cmake/roomcore/             find_package(roomcore CONFIG)
#     share/doc/roomcore/             README, NOTICE, licences, export list
#   devkit (for host developers who test offline)
#     bin/liteav.dll, imsdk.dll, Fundus.dll     the stand-in SDKs
#     include/roomcore-devkit/        their contract and control headers
#     lib/lib*.dll.a                  their import libraries
#     lib/cmake/roomcore/roomcoreDevkitTargets*.cmake
#     share/doc/roomcore-devkit/      the licences of what they contain
include(CMakePackageConfigHelpers)
set(ROOMCORE_PACKAGE_DIR lib/cmake/roomcore)
set(ROOMCORE_DOC_DIR share/doc/roomcore)
set(ROOMCORE_PACKAGE_FILES ${CMAKE_BINARY_DIR}/package)

install(TARGETS roomcore EXPORT roomcoreTargets
  RUNTIME DESTINATION bin COMPONENT roomcore
  ARCHIVE DESTINATION lib COMPONENT roomcore)
install(DIRECTORY ${CMAKE_SOURCE_DIR}/include/roomcore DESTINATION include COMPONENT roomcore
  FILES_MATCHING PATTERN "*.h")
install(FILES ${CMAKE_BINARY_DIR}/lib/roomcore.def DESTINATION lib COMPONENT roomcore)

# The DLLs of FFmpeg that roomcore.dll imports (read from its import table
# at install time), and the export list for the documentation.
install(CODE "
  set(ROOMCORE_DLL \"$<TARGET_FILE:roomcore>\")
  set(ROOMCORE_DEF \"${CMAKE_BINARY_DIR}/lib/roomcore.def\")
  set(ROOMCORE_IMPORT_DIR \"${FFMPEG_ROOT}/bin\")
  set(ROOMCORE_OBJDUMP \"${CMAKE_OBJDUMP}\")
  set(ROOMCORE_WORK_DIR \"${ROOMCORE_PACKAGE_FILES}\")
  set(ROOMCORE_DOC_DIR \"${ROOMCORE_DOC_DIR}\")
  include(\"${CMAKE_SOURCE_DIR}/cmake/InstallRuntime.cmake\")
" COMPONENT roomcore)

# The CMake package. Its version file also holds the pointer size, so a host
# of the other architecture finds the package unsuitable.
install(EXPORT roomcoreTargets NAMESPACE roomcore:: DESTINATION ${ROOMCORE_PACKAGE_DIR} COMPONENT roomcore)
configure_package_config_file(${CMAKE_SOURCE_DIR}/cmake/package/roomcoreConfig.cmake.in
  ${ROOMCORE_PACKAGE_FILES}/roomcoreConfig.cmake INSTALL_DESTINATION ${ROOMCORE_PACKAGE_DIR})
write_basic_package_version_file(${ROOMCORE_PACKAGE_FILES}/roomcoreConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${ROOMCORE_PACKAGE_FILES}/roomcoreConfig.cmake ${ROOMCORE_PACKAGE_FILES}/roomcoreConfigVersion.cmake
  DESTINATION ${ROOMCORE_PACKAGE_DIR} COMPONENT roomcore)

# Documentation: the README for host developers and the third-party notice,
# with the FFmpeg that this tree was configured with.
file(STRINGS ${FFMPEG_ROOT}/include/libavutil/ffversion.h ROOMCORE_FFMPEG_VERSION REGEX "FFMPEG_VERSION \"")
string(REGEX REPLACE ".*\"(.*)\".*" "\\1" ROOMCORE_FFMPEG_VERSION "${ROOMCORE_FFMPEG_VERSION}")
file(GLOB ffmpeg_dlls RELATIVE ${FFMPEG_ROOT}/bin ${FFMPEG_ROOT}/bin/*.dll)
list(SORT ffmpeg_dlls)
string(JOIN ", bin/" ROOMCORE_FFMPEG_DLLS ${ffmpeg_dlls})
list(GET ffmpeg_dlls 0 first_dll)
file(STRINGS ${FFMPEG_ROOT}/bin/${first_dll} ROOMCORE_FFMPEG_CONFIGURATION REGEX "--target-os=" LIMIT_COUNT 1)
configure_file(${CMAKE_SOURCE_DIR}/licenses/NOTICE.txt.in ${ROOMCORE_PACKAGE_FILES}/NOTICE.txt @ONLY)
configure_file(${CMAKE_SOURCE_DIR}/cmake/package/README.md.in ${ROOMCORE_PACKAGE_FILES}/README.md @ONLY)
install(FILES ${ROOMCORE_PACKAGE_FILES}/README.md ${ROOMCORE_PACKAGE_FILES}/NOTICE.txt
  DESTINATION ${ROOMCORE_DOC_DIR} COMPONENT roomcore)
install(DIRECTORY ${CMAKE_SOURCE_DIR}/licenses/ DESTINATION ${ROOMCORE_DOC_DIR}/licenses COMPONENT roomcore
  PATTERN "*.in" EXCLUDE)

# The devkit: the stand-ins, their headers and their imported targets.
install(TARGETS fundus liteav imsdk roomcore_sdk EXPORT roomcoreDevkitTargets
  RUNTIME DESTINATION bin COMPONENT devkit
  ARCHIVE DESTINATION lib COMPONENT devkit)
install(DIRECTORY ${CMAKE_SOURCE_DIR}/sdk/ DESTINATION include/roomcore-devkit COMPONENT devkit
  FILES_MATCHING PATTERN "*.h")
file(GLOB control_headers ${CMAKE_SOURCE_DIR}/standins/*/include/*.h)
install(FILES ${control_headers} DESTINATION include/roomcore-devkit COMPONENT devkit)
install(EXPORT roomcoreDevkitTargets NAMESPACE roomcore:: DESTINATION ${ROOMCORE_PACKAGE_DIR} COMPONENT devkit)
install(DIRECTORY ${CMAKE_SOURCE_DIR}/licenses/RapidJSON ${CMAKE_SOURCE_DIR}/licenses/winpthreads
  DESTINATION share/doc/roomcore-devkit/licenses COMPONENT devkit)
