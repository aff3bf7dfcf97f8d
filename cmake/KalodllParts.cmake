# The library needs only a compiler. Every other part needs packages; this file uses Debian's names.
# CMake leaves out a part whose packages are missing and prints a line that names them.

function(kalodll_left_out part missing)
  message(STATUS "Left out: ${part} (missing: ${missing})")
endfunction()

# Sets KALODLL_BUILD_<name> to ON or OFF. The cache entry stays AUTO, so that the part is built as
# soon as its packages are installed, until the user sets it to ON or OFF.
function(kalodll_part name part missing)
  set(option KALODLL_BUILD_${name})
  set(${option} AUTO CACHE STRING "Build ${part}: ON, OFF or AUTO")
  list(JOIN missing ", " missing)
  if(NOT missing AND ${option})
    set(${option} ON PARENT_SCOPE)
  elseif(${option} STREQUAL "AUTO")
    kalodll_left_out("${part}" "${missing}")
    set(${option} OFF PARENT_SCOPE)
  elseif(${option})
    message(FATAL_ERROR "cannot build ${part}: missing: ${missing}: install it, or set ${option}=OFF")
  endif()
endfunction()

# These packages are header-only, so a build for Android can use the host's. The compiler finds them
# through links, because their folder may also hold the headers of the host's libc.
set(_headers CLI/CLI.hpp fmt/core.h toml++/toml.h nlohmann/json.hpp)
set(_packages libcli11-dev libfmt-dev libtomlplusplus-dev nlohmann-json3-dev)
set(KALODLL_PACKAGE_HEADERS "${PROJECT_BINARY_DIR}/package_headers")
file(MAKE_DIRECTORY "${KALODLL_PACKAGE_HEADERS}")
foreach(header package IN ZIP_LISTS _headers _packages)
  cmake_path(GET header PARENT_PATH folder)
  find_path(KALODLL_INCLUDE_${folder} ${header} NO_CMAKE_FIND_ROOT_PATH)
  if(KALODLL_INCLUDE_${folder})
    file(CREATE_LINK "${KALODLL_INCLUDE_${folder}}/${folder}" "${KALODLL_PACKAGE_HEADERS}/${folder}"
      SYMBOLIC)
  else()
    list(APPEND _missing_for_tools ${package})
  endif()
endforeach()
kalodll_part(TOOLS "the simulator and the command-line tools" "${_missing_for_tools}")

# GoogleTest is built from source, so that it uses the standard library and sanitizers of the tests.
set(KALODLL_GOOGLETEST /usr/src/googletest CACHE PATH "Source folder of GoogleTest")
if(NOT EXISTS "${KALODLL_GOOGLETEST}/CMakeLists.txt")
  list(APPEND _missing_for_tests googletest)
endif()
if(NOT KALODLL_BUILD_TOOLS)
  list(APPEND _missing_for_tests "KALODLL_BUILD_TOOLS=ON")
endif()
kalodll_part(TESTS "the tests" "${_missing_for_tests}")
