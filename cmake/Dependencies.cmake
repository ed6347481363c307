# FFmpeg (cross-built by scripts/build-ffmpeg.sh), RapidJSON, GoogleTest, and
# the platform libraries the library links.
set(ROOMCORE_CACHE "/var/cache/roomcore" CACHE PATH "Where scripts/setup.sh keeps cross-built dependencies")
set(FFMPEG_ROOT "${ROOMCORE_CACHE}/ffmpeg" CACHE PATH "Cross-built FFmpeg")
if(NOT EXISTS "${FFMPEG_ROOT}/include/libswscale/swscale.h")
  message(FATAL_ERROR "FFmpeg for MinGW not found in ${FFMPEG_ROOT}: run scripts/setup.sh")
endif()

add_library(ffmpeg INTERFACE)
target_include_directories(ffmpeg SYSTEM INTERFACE ${FFMPEG_ROOT}/include)
target_link_libraries(ffmpeg INTERFACE
  ${FFMPEG_ROOT}/lib/libswscale.dll.a
  ${FFMPEG_ROOT}/lib/libswresample.dll.a
  ${FFMPEG_ROOT}/lib/libavutil.dll.a)
# Copied at build time, so that a rebuilt cache reaches every build tree.
file(GLOB FFMPEG_DLLS ${FFMPEG_ROOT}/bin/*.dll)
add_custom_target(ffmpeg_runtime
  COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/bin
  COMMAND ${CMAKE_COMMAND} -E copy_if_different ${FFMPEG_DLLS} ${CMAKE_BINARY_DIR}/bin
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

# Everything roomcore.dll links: the platform, the companion and SDK DLLs
# (stand-ins here) and FFmpeg.
add_library(roomcore_platform INTERFACE)
target_link_libraries(roomcore_platform INTERFACE
  fundus ffmpeg rapidjson
  ole32 oleaut32 uuid winmm user32 gdi32 dwmapi psapi version shlwapi)
foreach(sdk liteav imsdk)
  if(EXISTS ${CMAKE_SOURCE_DIR}/standins/${sdk}/CMakeLists.txt)
    target_link_libraries(roomcore_platform INTERFACE ${sdk})
  endif()
endforeach()
