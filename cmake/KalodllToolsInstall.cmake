# What comes with the installed tools: man pages, completion, documents, scenarios, and the engine for
# tests that run it in their own process.

find_program(KALODLL_HELP2MAN help2man)
mark_as_advanced(KALODLL_HELP2MAN)
if(KALODLL_HELP2MAN AND NOT CMAKE_CROSSCOMPILING AND NOT KALODLL_SANITIZE)
  set(_pages "")
  foreach(tool zulisim kaloctl)
    add_custom_command(OUTPUT "${PROJECT_BINARY_DIR}/man/${tool}.1"
      COMMAND "${PROJECT_SOURCE_DIR}/cmake/manual.sh" $<TARGET_FILE:${tool}> ${PROJECT_VERSION}
              "${PROJECT_BINARY_DIR}/man"
      DEPENDS ${tool} "${PROJECT_SOURCE_DIR}/cmake/manual.sh" VERBATIM)
    list(APPEND _pages "${PROJECT_BINARY_DIR}/man/${tool}.1")
  endforeach()
  add_custom_target(manual ALL DEPENDS ${_pages})
  install(DIRECTORY "${PROJECT_BINARY_DIR}/man/" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1"
    FILES_MATCHING PATTERN "*.1")
else()
  message(STATUS "Without help2man, or for another system, no man pages are made")
endif()

foreach(tool zulisim kaloctl)
  install(FILES "${PROJECT_SOURCE_DIR}/tools/completion.bash" RENAME ${tool}
    DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions")
endforeach()
install(FILES README.md CHANGELOG.md DESTINATION "${CMAKE_INSTALL_DOCDIR}")
install(DIRECTORY docs DESTINATION "${CMAKE_INSTALL_DOCDIR}")
install(DIRECTORY simulator/scenarios DESTINATION "${CMAKE_INSTALL_DATADIR}/kalodll")
