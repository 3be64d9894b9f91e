# cpack runs this on what it has staged, before it packs.

# Debian keeps zsh completions of packages in a place of its own and manual pages compressed.
if(CPACK_GENERATOR STREQUAL "DEB")
  set(share ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr/share)
  file(RENAME ${share}/zsh/site-functions ${share}/zsh/vendor-completions)
  file(GLOB pages ${share}/man/man1/*.1)
  execute_process(COMMAND gzip -9 --no-name ${pages} COMMAND_ERROR_IS_FATAL ANY)
endif()

if(DEFINED ENV{SOURCE_DATE_EPOCH})
  execute_process(
    COMMAND find ${CPACK_TEMPORARY_INSTALL_DIRECTORY} -exec
            touch --no-dereference --date=@$ENV{SOURCE_DATE_EPOCH} {} +
    COMMAND_ERROR_IS_FATAL ANY)
endif()
