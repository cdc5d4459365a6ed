# Fetches the packages of a lock file:  cmake -DNPM= -DFROM=folder with package*.json -DTO=folder -P ...
file(COPY ${FROM}/package.json ${FROM}/package-lock.json DESTINATION ${TO})
execute_process(
  COMMAND ${NPM} ci --ignore-scripts --no-audit --no-fund --loglevel=error
  WORKING_DIRECTORY ${TO} OUTPUT_QUIET ERROR_VARIABLE reason RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "npm cannot fetch what ${FROM} needs: ${reason}\n"
    "Without the network, configure with -DKORVANE_REPORT=OFF: the tool is then built without reports.")
endif()
file(TOUCH ${TO}/installed)
