# What is shipped: the installed files and their users, and the binary interface.
add_executable(shipping_detector shipping/consumer/detector.c)
add_executable(shipping_suppressor shipping/consumer/suppressor.cpp)
foreach(program shipping_detector shipping_suppressor)
  target_link_libraries(${program} PRIVATE KorvaneVAD::korvane-vad korvane_warnings)
endforeach()

# The release as it is delivered, with gcc, which made the dumps.
if(KORVANE_SIMD AND NOT KORVANE_INSTRUMENTED AND CMAKE_BUILD_TYPE STREQUAL "Release"
   AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  if(KORVANE_BUILD_TOOLS AND NOT CMAKE_CROSSCOMPILING)
    add_test(NAME shipping.consumers COMMAND ${python} ${CMAKE_CURRENT_SOURCE_DIR}/shipping/consumers_test.py
      ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR} ${CMAKE_CURRENT_BINARY_DIR}/consumers
      ${CMAKE_C_COMPILER} ${CMAKE_CXX_COMPILER}
      $<TARGET_FILE:shipping_detector> $<TARGET_FILE:shipping_suppressor> $<TARGET_FILE:korvane-vad>)
    set_tests_properties(shipping.consumers PROPERTIES PROCESSORS 2 TIMEOUT 300 LABELS slow)
    # Somebody who lacks packages is told all of them at once.
    add_test(NAME shipping.missing_packages COMMAND ${CMAKE_COMMAND} -E env PKG_CONFIG_LIBDIR=/none
      ${CMAKE_COMMAND} -G ${CMAKE_GENERATOR} -S ${PROJECT_SOURCE_DIR} -B ${CMAKE_CURRENT_BINARY_DIR}/missing
      -DKORVANE_REPORT=ON -DCMAKE_C_COMPILER=${CMAKE_C_COMPILER} -DCMAKE_CXX_COMPILER=${CMAKE_CXX_COMPILER}
      -DCMAKE_DISABLE_FIND_PACKAGE_CLI11=ON -DCMAKE_DISABLE_FIND_PACKAGE_nlohmann_json=ON -DLAME_FOLDER=)
    set_tests_properties(shipping.missing_packages PROPERTIES PASS_REGULAR_EXPRESSION "apt-get install \
libcli11-dev nlohmann-json3-dev libsndfile1-dev libsoxr-dev libssl-dev libfftw3-dev zlib1g-dev libmp3lame-dev\n")
  endif()
  add_test(NAME shipping.abi COMMAND ${PROJECT_SOURCE_DIR}/scripts/abi check ${CMAKE_SYSTEM_PROCESSOR})
  set_tests_properties(shipping.abi PROPERTIES TIMEOUT 300)
endif()
