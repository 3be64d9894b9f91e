# cpack's own archives list files in the order of the directory and with the owner who builds them;
# this one has neither.
set(archive ${CPACK_TOPLEVEL_DIRECTORY}/${CPACK_PACKAGE_FILE_NAME}.tar)
cmake_path(GET CPACK_TEMPORARY_DIRECTORY PARENT_PATH parent)
cmake_path(GET CPACK_TEMPORARY_DIRECTORY FILENAME top)
execute_process(
  COMMAND tar --create --file ${archive} --directory ${parent} --format=ustar --sort=name
          --owner=root:0 --group=root:0 ${top}
  COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND gzip -9 --no-name --force ${archive} COMMAND_ERROR_IS_FATAL ANY)
set(CPACK_EXTERNAL_BUILT_PACKAGES ${archive}.gz)
