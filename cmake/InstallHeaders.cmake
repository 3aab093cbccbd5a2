# Runs while installing: copies the public headers of PEX_ROOT to PEX_INCLUDE_DIR. Public are the headers that
# export something, the umbrella header, and whatever these include; scripts/check-dependencies sees to it that
# none of them needs a kernel or another library. With PEX_LIST_ONLY it prints their paths instead
# (scripts/public-headers).
cmake_policy(VERSION 3.25)

file(GLOB_RECURSE headers RELATIVE ${PEX_ROOT} ${PEX_ROOT}/peximage/*.h)
list(FILTER headers EXCLUDE REGEX "/kernels/")

set(pending)
foreach(header ${headers})
  file(STRINGS ${PEX_ROOT}/${header} exports REGEX "PEX_EXPORT" LIMIT_COUNT 1)
  if(exports OR header STREQUAL "peximage/peximage.h")
    list(APPEND pending ${header})
  endif()
endforeach()

set(public)
while(pending)
  list(POP_FRONT pending header)
  if(header IN_LIST public OR NOT EXISTS ${PEX_ROOT}/${header})
    continue()
  endif()
  list(APPEND public ${header})
  file(STRINGS ${PEX_ROOT}/${header} includes REGEX "^ *# *include *\"")
  list(TRANSFORM includes REPLACE "^[^\"]*\"([^\"]+)\".*" "\\1")
  list(APPEND pending ${includes})
  if(PEX_LIST_ONLY)
    message(${header})
    continue()
  endif()
  get_filename_component(folder ${header} DIRECTORY)
  file(INSTALL ${PEX_ROOT}/${header} DESTINATION ${PEX_INCLUDE_DIR}/${folder})
endwhile()
