# Tests of the kernels and stages, each program linked from the core's objects. Their cases are listed
# when ctest runs, not when they are built, so that a cross-build needs no emulator to build.
foreach(test IN ITEMS fft288_test fft288_uninitialised_test filter_bank_test spectral_gain_test
                      pipeline_test speech_score_test conformance_kit_test)
  add_executable(${test} ${test}.cpp)
  target_link_libraries(${test} PRIVATE korvane_test_core conformance_kit)
  gtest_discover_tests(${test} DISCOVERY_MODE PRE_TEST)
endforeach()
if(NOT KORVANE_CORE_TARGETS STREQUAL "korvane_core")
  target_compile_definitions(pipeline_test PRIVATE KORVANE_SIMD)
endif()
