# FFmpeg, GoogleTest and Google Benchmark (cross-built per architecture by
# scripts/setup.sh), RapidJSON, and the platform libraries the library links.
if(NOT ROOMCORE_ARCH)
  message(FATAL_ERROR "Configure with -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-i686.cmake or cmake/mingw-x86_64.cmake")
endif()
if(DEFINED ENV{ROOMCORE_CACHE})
  set(roomcore_cache_default "$ENV{ROOMCORE_CACHE}")
else()
  set(roomcore_cache_default "/var/cache/roomcore")
endif()
set(ROOMCORE_CACHE "${roomcore_cache_default}" CACHE PATH "Where scripts/setup.sh keeps cross-built dependencies")
set(ROOMCORE_DEPS "${ROOMCORE_CACHE}/${ROOMCORE_ARCH}")
set(FFMPEG_ROOT "${ROOMCORE_DEPS}/ffmpeg" CACHE PATH "Cross-built FFmpeg")
if(NOT EXISTS "${FFMPEG_ROOT}/include/libswscale/swscale.h")
  message(FATAL_ERROR "FFmpeg for MinGW (${ROOMCORE_ARCH}) not found in ${FFMPEG_ROOT}: run scripts/setup.sh")
endif()

add_library(ffmpeg INTERFACE)
target_include_directories(ffmpeg SYSTEM INTERFACE ${FFMPEG_ROOT}/include)
target_link_libraries(ffmpeg INTERFACE
  ${FFMPEG_ROOT}/lib/libswscale.dll.a
  ${FFMPEG_ROOT}/lib/libswresample.dll.a
  ${FFMPEG_ROOT}/lib/libavutil.dll.a)
# The DLLs are listed and copied at build time, so that a rebuilt cache
# (another FFmpeg version, say) reaches every build tree.
add_custom_target(ffmpeg_runtime
  COMMAND ${CMAKE_COMMAND} -DFROM=${FFMPEG_ROOT}/bin -DTO=${CMAKE_BINARY_DIR}/bin
          -P ${CMAKE_SOURCE_DIR}/cmake/CopyDlls.cmake
  VERBATIM)
add_dependencies(ffmpeg ffmpeg_runtime)

if(NOT EXISTS /usr/include/rapidjson/document.h)
  message(FATAL_ERROR "RapidJSON not found: run scripts/setup.sh")
endif()
add_library(rapidjson INTERFACE)
# Only the headers: copied into the build tree so that the cross compiler
# does not see the host's /usr/include.
file(COPY /usr/include/rapidjson DESTINATION ${CMAKE_BINARY_DIR}/third_party/include)
target_include_directories(rapidjson SYSTEM INTERFACE ${CMAKE_BINARY_DIR}/third_party/include)

# The contracts of the SDKs and of Fundus.dll: the library compiles against
# these alone; the stand-ins implement them.
add_library(roomcore_sdk INTERFACE)
target_include_directories(roomcore_sdk INTERFACE $<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}/sdk>
                                                 $<INSTALL_INTERFACE:include/roomcore-devkit>)
set_target_properties(roomcore_sdk PROPERTIES EXPORT_NAME sdk_contracts)

# Everything roomcore.dll links: the platform, the companion and SDK DLLs and
# FFmpeg. The stand-ins give only their import libraries here (LINK_ONLY), so
# no test-control header is within the library's reach.
add_library(roomcore_platform INTERFACE)
target_link_libraries(roomcore_platform INTERFACE
  roomcore_sdk ffmpeg rapidjson
  $<LINK_ONLY:fundus> $<LINK_ONLY:liteav> $<LINK_ONLY:imsdk>
  ole32 oleaut32 uuid winmm avrt user32 gdi32 dwmapi psapi version shlwapi)
