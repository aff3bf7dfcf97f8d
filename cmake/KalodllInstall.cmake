# `cmake --install`: the library, its headers, a CMake package and a pkg-config file.

include(CMakePackageConfigHelpers)

set(_package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/kalodll")
install(TARGETS kalodll EXPORT kalodllTargets
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
  FILE_SET HEADERS DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/kalodll")
install(EXPORT kalodllTargets NAMESPACE kalodll:: DESTINATION "${_package_dir}")

configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/kalodllConfig.cmake.in"
  "${PROJECT_BINARY_DIR}/kalodllConfig.cmake" INSTALL_DESTINATION "${_package_dir}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/kalodllConfigVersion.cmake"
  COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/kalodllConfig.cmake"
  "${PROJECT_BINARY_DIR}/kalodllConfigVersion.cmake" DESTINATION "${_package_dir}")

# Relative to the file, so that the installed tree can be moved.
file(RELATIVE_PATH CMAKE_PC_INCLUDEDIR "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig"
     "${CMAKE_INSTALL_FULL_INCLUDEDIR}")
configure_file("${PROJECT_SOURCE_DIR}/cmake/kalodll.pc.in" "${PROJECT_BINARY_DIR}/kalodll.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/kalodll.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
