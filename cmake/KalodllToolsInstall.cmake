# Files installed with the tools: man pages, completion, documents, scenarios, and the engine for tests
# that run it in their own process.

find_program(KALODLL_HELP2MAN help2man)
mark_as_advanced(KALODLL_HELP2MAN)
if(KALODLL_HELP2MAN AND NOT CMAKE_CROSSCOMPILING AND NOT KALODLL_SANITIZE)
  set(_pages "")
  file(GLOB _details "${PROJECT_SOURCE_DIR}/*/manual/*.h2m")
  foreach(tool zulisim kaloctl)
    add_custom_command(OUTPUT "${PROJECT_BINARY_DIR}/man/${tool}.1.gz"
      COMMAND "${PROJECT_SOURCE_DIR}/cmake/manual.sh" $<TARGET_FILE:${tool}> ${PROJECT_VERSION}
              "${PROJECT_BINARY_DIR}/man"
      DEPENDS ${tool} "${PROJECT_SOURCE_DIR}/cmake/manual.sh" ${_details} VERBATIM)
    list(APPEND _pages "${PROJECT_BINARY_DIR}/man/${tool}.1.gz")
  endforeach()
  add_custom_target(manual ALL DEPENDS ${_pages})
  install(DIRECTORY "${PROJECT_BINARY_DIR}/man/" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1"
    FILES_MATCHING PATTERN "*.1.gz")
elseif(NOT KALODLL_HELP2MAN)
  kalodll_left_out("the man pages" help2man)
endif()

foreach(tool zulisim kaloctl)
  install(FILES "${PROJECT_SOURCE_DIR}/tools/completion.bash" RENAME ${tool}
    DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions")
endforeach()
# The pages and the files that they link to.
install(FILES README.md CHANGELOG.md CONTRIBUTING.md DESTINATION "${CMAKE_INSTALL_DOCDIR}")
install(DIRECTORY docs DESTINATION "${CMAKE_INSTALL_DOCDIR}")
install(FILES api/imports.txt DESTINATION "${CMAKE_INSTALL_DOCDIR}/api")
install(FILES tools/demo/demo_driver.c DESTINATION "${CMAKE_INSTALL_DOCDIR}/examples")
install(FILES simulator/README.md DESTINATION "${CMAKE_INSTALL_DOCDIR}/simulator")
set(_scenarios "${CMAKE_INSTALL_DATADIR}/kalodll/scenarios")
install(DIRECTORY simulator/scenarios DESTINATION "${CMAKE_INSTALL_DATADIR}/kalodll")
file(MAKE_DIRECTORY "${PROJECT_BINARY_DIR}/installed_links")
file(RELATIVE_PATH _target "/${CMAKE_INSTALL_DOCDIR}/simulator" "/${_scenarios}")
file(CREATE_LINK "${_target}" "${PROJECT_BINARY_DIR}/installed_links/scenarios" SYMBOLIC)
install(FILES "${PROJECT_BINARY_DIR}/installed_links/scenarios"
  DESTINATION "${CMAKE_INSTALL_DOCDIR}/simulator")

set(_engine_dir "${CMAKE_INSTALL_LIBDIR}/kalodll")
install(TARGETS kalodll_common zulisim_engine zulisim_inprocess EXPORT zulisimTargets
  ARCHIVE DESTINATION "${_engine_dir}" OBJECTS DESTINATION "${_engine_dir}"
  FILE_SET HEADERS DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/kalodll")
install(EXPORT zulisimTargets NAMESPACE kalodll::
  DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/kalodll")
