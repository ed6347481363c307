# cmake -DFROM=dir -DTO=dir -P CopyDlls.cmake: copies every DLL of FROM into
# TO, listed when it runs.
file(GLOB dlls "${FROM}/*.dll")
if(NOT dlls)
  message(FATAL_ERROR "no DLL in ${FROM}")
endif()
file(MAKE_DIRECTORY "${TO}")
foreach(dll ${dlls})
  file(COPY "${dll}" DESTINATION "${TO}")
endforeach()
