# How libkalodll.so is built: its contents, its exported symbols, its layout.

find_library(KALODLL_LIBLOG log PATH_SUFFIXES android)
find_path(KALODLL_LIBLOG_INCLUDE android/log.h PATH_SUFFIXES android)
mark_as_advanced(KALODLL_LIBLOG KALODLL_LIBLOG_INCLUDE)

set(_exports "${PROJECT_SOURCE_DIR}/api/exports.map")
target_include_directories(kalodll PUBLIC
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/kalodll>)
target_compile_features(kalodll PUBLIC cxx_std_17)
target_link_libraries(kalodll PRIVATE Threads::Threads)
set_target_properties(kalodll PROPERTIES
  LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}"
  # Set at link time: CMake would otherwise leave an empty entry, which means the current folder.
  BUILD_WITH_INSTALL_RPATH ON
  INSTALL_RPATH_USE_LINK_PATH ON
  LINK_DEPENDS "${_exports}")

target_link_options(kalodll PRIVATE
  "LINKER:--version-script=${_exports}"
  "LINKER:-z,text"
  "LINKER:-z,max-page-size=16384,-z,common-page-size=16384"
  "LINKER:--gc-sections")
# All symbols are bound at load, so calls through the linkage table would only be slower.
target_compile_options(kalodll PRIVATE -ffunction-sections -fdata-sections -fno-plt)
kalodll_harden(kalodll)

if(ANDROID)
  # The toolchain finds its own log library.
  target_link_libraries(kalodll PRIVATE log)
elseif(KALODLL_LIBLOG AND KALODLL_LIBLOG_INCLUDE)
  target_link_libraries(kalodll PRIVATE "${KALODLL_LIBLOG}")
  target_include_directories(kalodll SYSTEM PRIVATE "${KALODLL_LIBLOG_INCLUDE}")
else()
  kalodll_left_out("Android's log; its messages go to standard error" android-liblog-dev)
  target_compile_definitions(kalodll PRIVATE KALODLL_HOST_ANDROID_LOG)
endif()

# Packs each relative relocation into one bit. Most of them belong to the C++ runtime. Android's loader
# supports them from API level 28 on. glibc's supports them from 2.36 on, but needs a mark of GNU ld.
if(ANDROID)
  target_link_options(kalodll PRIVATE
    "LINKER:--pack-dyn-relocs=android+relr,--use-android-relr-tags")
elseif(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_link_options(kalodll PRIVATE "LINKER:-z,pack-relative-relocs")
endif()

if(ANDROID)
  # The toolchain's c++_static contains library and unwinder; the version script hides both. With
  # emulated thread-local storage, each cycle of load, throw and unload would leak 192 bytes.
  target_link_options(kalodll PRIVATE "LINKER:--no-undefined")
  target_compile_definitions(kalodll PRIVATE KALODLL_CARRIES_LIBCXX)
  set_source_files_properties("${PROJECT_SOURCE_DIR}/api/kalo_dll_state.cpp"
    TARGET_DIRECTORY kalodll PROPERTIES COMPILE_OPTIONS -fno-emulated-tls)
elseif(NOT KALODLL_SANITIZE)
  # The C++ standard library is inside and hidden. The unwinder is the process's shared one, because
  # exceptions of the exported classes cross into callers, which a private unwinder cannot handle.
  target_link_options(kalodll PRIVATE "LINKER:--no-undefined")
  if(CMAKE_CXX_FLAGS MATCHES "-stdlib=libc\\+\\+")
    target_link_options(kalodll PRIVATE -nostdlib++)
    target_link_libraries(kalodll PRIVATE
      "-Wl,-Bstatic" c++ c++abi "-Wl,-Bdynamic" Threads::Threads gcc_s)
    target_compile_definitions(kalodll PRIVATE KALODLL_CARRIES_LIBCXX)
  else()
    # The compiler's reference to __cxa_pure_virtual is weak, and a weak reference links nothing.
    target_link_options(kalodll PRIVATE -static-libstdc++ "LINKER:--undefined=__cxa_pure_virtual")
    target_compile_definitions(kalodll PRIVATE KALODLL_CARRIES_LIBSTDCXX)
  endif()
endif()
