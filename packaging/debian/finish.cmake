# Runs on the folders that become the packages, before they are packed: what Debian wants compressed.
file(GLOB_RECURSE plain
  ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*/usr/share/man/*.1
  ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*/usr/share/doc/*/changelog.Debian)
execute_process(COMMAND gzip -9n ${plain} COMMAND_ERROR_IS_FATAL ANY)
