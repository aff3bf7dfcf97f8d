# The toolchain of the presets that need clang: the newest installed version, 14 or later.

set(_newest_first clang++)
foreach(version RANGE 40 14 -1)
  list(APPEND _newest_first clang++-${version})
endforeach()
find_program(KALODLL_CLANG_CXX NAMES ${_newest_first} NAMES_PER_DIR)
if(NOT KALODLL_CLANG_CXX)
  message(FATAL_ERROR "cannot find clang++ 14 or later: install clang (scripts/setup.sh test)")
endif()
string(REPLACE "clang++" "clang" _clang "${KALODLL_CLANG_CXX}")
set(CMAKE_CXX_COMPILER "${KALODLL_CLANG_CXX}")
set(CMAKE_C_COMPILER "${_clang}")
