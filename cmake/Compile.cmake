# One place for what every target of the project is compiled with.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)

# An installed program finds the library beside it, wherever the prefix is.
file(RELATIVE_PATH PEX_LIB_FROM_BIN /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
set(CMAKE_INSTALL_RPATH $ORIGIN/${PEX_LIB_FROM_BIN})

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  # Paths count from the checkout, so that every clone of the same sources finds what another has compiled.
  set(CMAKE_CXX_COMPILER_LAUNCHER env CCACHE_BASEDIR=${PROJECT_SOURCE_DIR} CCACHE_NOHASHDIR=1 ${CCACHE_PROGRAM})
  set(CMAKE_C_COMPILER_LAUNCHER ${CMAKE_CXX_COMPILER_LAUNCHER})
endif()

add_library(pex_options INTERFACE)
# Only libraries that are really used are loaded when a program starts.
target_link_options(pex_options INTERFACE -Wl,--as-needed)
target_compile_options(pex_options INTERFACE -Wall -Wextra -Wpedantic)
# gcc 12 sees overlapping copies in text + std::string, where there are none.
target_compile_options(pex_options INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
if(PEX_WERROR)
  target_compile_options(pex_options INTERFACE -Werror)
endif()

# PEX_SANITIZE is a list for -fsanitize=: "address,undefined", "thread" …
if(PEX_SANITIZE)
  target_compile_options(pex_options INTERFACE -fsanitize=${PEX_SANITIZE} -fno-omit-frame-pointer
                                               -fno-sanitize-recover=all)
  # clang 14 cannot assemble the check of function types in coroutines.
  target_compile_options(pex_options INTERFACE $<$<CXX_COMPILER_ID:Clang>:-fno-sanitize=function>)
  target_link_options(pex_options INTERFACE -fsanitize=${PEX_SANITIZE})
endif()
if(PEX_COVERAGE)
  target_compile_options(pex_options INTERFACE --coverage)
  target_link_options(pex_options INTERFACE --coverage)
endif()
