# Debian packages: one of the library with its headers, and one of the tools. scripts/package.sh makes
# them; it sets the maintainer, and writes the changelogs, which name the maintainer.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kalodll)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_BINARY_DIR}/packages")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL library)
if(KALODLL_BUILD_TOOLS)
  list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
foreach(package library:libkalodll tools:kalodll-tools)
  string(REGEX MATCH "(.*):(.*)" _all ${package})
  set(_doc "${CMAKE_INSTALL_DATADIR}/doc/${CMAKE_MATCH_2}")
  install(FILES cmake/copyright DESTINATION "${_doc}" COMPONENT ${CMAKE_MATCH_1})
  install(FILES "${PROJECT_BINARY_DIR}/changelog.gz" DESTINATION "${_doc}"
    COMPONENT ${CMAKE_MATCH_1} OPTIONAL)
endforeach()
# Debian keeps its log library in a private folder, so libkalodll.so must name the folder.
file(WRITE "${PROJECT_BINARY_DIR}/lintian/libkalodll" "libkalodll: custom-library-search-path *\n")
install(FILES "${PROJECT_BINARY_DIR}/lintian/libkalodll"
  DESTINATION "${CMAKE_INSTALL_DATADIR}/lintian/overrides" COMPONENT library)
# Makes dpkg run ldconfig.
file(WRITE "${PROJECT_BINARY_DIR}/triggers" "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA "${PROJECT_BINARY_DIR}/triggers")
# dpkg-shlibdeps finds the packages that the binaries need, including liblog's. libkalodll is not
# part of an installed package yet, so dpkg-shlibdeps needs its folder.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}")

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libkalodll)
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION
  "carries a driver's protected-media commands to firmware clients\n\
The shared library with its headers, a CMake package and a pkg-config file.")
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME kalodll-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libkalodll (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS fuse3)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
  "tools for libkalodll: a security engine in software, and kaloctl\n\
zulisim gives any program the device in software. kaloctl calls the library as a driver\n\
does. With man pages, completion, documents and scenarios.")
include(CPack)
