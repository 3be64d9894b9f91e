# What is installed beside the programs: manual pages, completions and guides.
function(talvex_install_extras program)
  install(FILES ${PROJECT_SOURCE_DIR}/man/${program}.1
          DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES ${PROJECT_SOURCE_DIR}/completions/${program}.bash
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME ${program})
  install(FILES ${PROJECT_SOURCE_DIR}/completions/_${program}
          DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
  install(FILES ${PROJECT_SOURCE_DIR}/completions/${program}.fish
          DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
endfunction()

talvex_install_extras(talvex)
if(TALVEX_BUILD_SAMPLE)
  talvex_install_extras(talvex-sample)
endif()

# The guides for those who use talvex; how it is built and carried on stays with the sources.
# They lie in a directory of their own, as in the sources, so that their links hold.
install(FILES
  ${PROJECT_SOURCE_DIR}/CHANGELOG.md
  ${PROJECT_SOURCE_DIR}/SECURITY.md
  DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES
  ${PROJECT_SOURCE_DIR}/docs/batch.md
  ${PROJECT_SOURCE_DIR}/docs/core-file-format.md
  ${PROJECT_SOURCE_DIR}/docs/reading-a-report.md
  DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs)
