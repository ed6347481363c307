# Run by `cmake --install` (component roomcore), with ROOMCORE_DLL,
# ROOMCORE_DEF, ROOMCORE_IMPORT_DIR, ROOMCORE_OBJDUMP, ROOMCORE_WORK_DIR and
# ROOMCORE_DOC_DIR set.
#
# 1. Installs into bin/ every DLL of ROOMCORE_IMPORT_DIR (FFmpeg's) that
#    roomcore.dll imports, and what those import in turn: the import tables
#    say which, so a rebuilt FFmpeg of other major versions ships right.
# 2. Writes the export list, each name with its C++ reading, into the
#    documentation.

# (its own policy scope: cmake_install.cmake sets none)
cmake_policy(VERSION 3.20)

function(roomcore_imports pe out)
  execute_process(COMMAND "${ROOMCORE_OBJDUMP}" -p "${pe}" OUTPUT_VARIABLE dump RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${ROOMCORE_OBJDUMP} could not read ${pe}")
  endif()
  string(REGEX MATCHALL "DLL Name: [^\r\n]+" lines "${dump}")
  list(TRANSFORM lines REPLACE "DLL Name: " "")
  set(${out} ${lines} PARENT_SCOPE)
endfunction()

set(pending "${ROOMCORE_DLL}")
set(shipped)
while(pending)
  list(POP_FRONT pending pe)
  roomcore_imports("${pe}" imports)
  foreach(name IN LISTS imports)
    if(EXISTS "${ROOMCORE_IMPORT_DIR}/${name}" AND NOT name IN_LIST shipped)
      list(APPEND shipped "${name}")
      list(APPEND pending "${ROOMCORE_IMPORT_DIR}/${name}")
      file(INSTALL "${ROOMCORE_IMPORT_DIR}/${name}" DESTINATION "${CMAKE_INSTALL_PREFIX}/bin" MESSAGE_LAZY)
    endif()
  endforeach()
endwhile()
if(NOT shipped)
  message(FATAL_ERROR "roomcore.dll imports no DLL of ${ROOMCORE_IMPORT_DIR}: is FFmpeg there?")
endif()

# The export list: the .def's names, and beside each its demangled form
# (the names as they stand: i686's c++filt would drop a leading underscore).
file(STRINGS "${ROOMCORE_DEF}" def_lines)
set(names)
foreach(line IN LISTS def_lines)
  if(line MATCHES "^[ \t]+([^ \t@]+)")
    list(APPEND names "${CMAKE_MATCH_1}")
  endif()
endforeach()
string(REGEX REPLACE "objdump$" "c++filt" cxxfilt "${ROOMCORE_OBJDUMP}")
string(JOIN "\n" raw ${names})
file(WRITE "${ROOMCORE_WORK_DIR}/exports.raw" "${raw}\n")
execute_process(COMMAND "${cxxfilt}" --no-strip-underscore INPUT_FILE "${ROOMCORE_WORK_DIR}/exports.raw"
  OUTPUT_VARIABLE demangled RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "${cxxfilt} failed")
endif()
string(REPLACE "\n" ";" demangled "${demangled}")
list(LENGTH names count)
set(text "# roomcore.dll exports ${count} names: the C++ reading, then the name in the\n")
string(APPEND text "# export table and roomcore.def (GCC's C++ ABI: a MinGW-w64 host links them).\n")
set(index 0)
foreach(name IN LISTS names)
  list(GET demangled ${index} readable)
  math(EXPR index "${index} + 1")
  if(readable STREQUAL name)
    string(APPEND text "${name}\n")
  else()
    string(APPEND text "${readable}\n    ${name}\n")
  endif()
endforeach()
# (written only when it changes, so that an unchanged DLL installs nothing)
set(list_file "${ROOMCORE_WORK_DIR}/exports.txt")
set(old "")
if(EXISTS "${list_file}")
  file(READ "${list_file}" old)
endif()
if(NOT old STREQUAL text)
  file(WRITE "${list_file}" "${text}")
endif()
file(INSTALL "${list_file}" DESTINATION "${CMAKE_INSTALL_PREFIX}/${ROOMCORE_DOC_DIR}" MESSAGE_LAZY)
