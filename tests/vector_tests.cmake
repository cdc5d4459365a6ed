# Many lanes against one.
if(KORVANE_VECTOR_ISAS)
  add_executable(vector_test vector_code_test.cpp)
  target_compile_definitions(vector_test PRIVATE KORVANE_SIMD)
  target_link_libraries(vector_test PRIVATE korvane_test_core conformance_kit)
  foreach(isa IN LISTS KORVANE_VECTOR_ISAS)
    add_library(vector_operations_${isa} OBJECT vector_operations_test.cpp)
    target_compile_definitions(vector_operations_${isa} PRIVATE
      $<TARGET_PROPERTY:korvane_${isa},COMPILE_DEFINITIONS>)
    # Much to expand, and soon run.
    target_compile_options(vector_operations_${isa} PRIVATE ${KORVANE_${isa}_OPTIONS} -O1)
    target_include_directories(vector_operations_${isa} PRIVATE
      ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/conformance)
    target_link_libraries(vector_operations_${isa} PRIVATE gtest korvane_warnings)
    target_sources(vector_test PRIVATE $<TARGET_OBJECTS:vector_operations_${isa}>)
  endforeach()
  # Which set is chosen where there is AVX without AVX2.
  if(QEMU_X86_64 AND KORVANE_VECTOR_ISAS MATCHES "sse2" AND NOT KORVANE_SANITIZE)
    add_test(NAME instruction_set.avx COMMAND ${QEMU_X86_64} -cpu max,-avx2
      $<TARGET_FILE:vector_test> --gtest_filter=InstructionSet.*)
  endif()
  gtest_discover_tests(vector_test TEST_PREFIX vector. DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT 600)
endif()
