# Tests of the stream, the detector, the log, the built file and the tree.
find_package(Python3 REQUIRED COMPONENTS Interpreter)
set(python ${Python3_EXECUTABLE} -B)

# Debian 12's qemu-user (7.2) does not get past the start of a thread, not even in a program of three lines.
set(filter "")
if(CMAKE_CROSSCOMPILING)
  set(filter TEST_FILTER "-Streams.AThousandOnSeveralThreadsEqualEachAlone")
endif()
foreach(name stream detector hostile streams)
  add_executable(${name}_test ${name}_test.cpp)
  target_link_libraries(${name}_test PRIVATE korvane_test_core conformance_kit)
  gtest_discover_tests(${name}_test TEST_PREFIX ${name}. DISCOVERY_MODE PRE_TEST ${filter} PROPERTIES TIMEOUT 300)
endforeach()

target_sources(streams_test PRIVATE $<TARGET_OBJECTS:korvane_streams_parts>)

# C99 programs on the shared library, without a log function of their own.
foreach(name c_api log_child)
  add_executable(${name} ${name}.c)
  target_link_libraries(${name} PRIVATE KorvaneVAD::korvane-vad m)
  target_compile_options(${name} PRIVATE -pedantic -Wall -Wextra -Werror)
  set_target_properties(${name} PROPERTIES C_STANDARD_REQUIRED ON C_EXTENSIONS OFF)
endforeach()
add_test(NAME c_api COMMAND c_api)
add_test(NAME log_stderr COMMAND ${python} ${CMAKE_CURRENT_SOURCE_DIR}/log_stderr_test.py
  $<TARGET_FILE:c_api> $<TARGET_FILE:log_child> ${CMAKE_CROSSCOMPILING_EMULATOR})

# The tree is the same for all builds of a compiler.
if(KORVANE_BUILD_TOOLS AND NOT KORVANE_INSTRUMENTED)
  add_test(NAME source_tree COMMAND ${python} ${CMAKE_CURRENT_SOURCE_DIR}/source_tree_test.py
    ${PROJECT_SOURCE_DIR} ${CMAKE_C_COMPILER} ${CMAKE_CXX_COMPILER})
  set_tests_properties(source_tree PROPERTIES LABELS slow)
endif()

if(NOT KORVANE_INSTRUMENTED AND NOT "${CMAKE_C_FLAGS} ${CMAKE_CXX_FLAGS}" MATCHES "-fsanitize|-fprofile|--coverage")
  set(core_objects)
  foreach(target IN LISTS KORVANE_CORE_TARGETS)
    list(APPEND core_objects $<TARGET_OBJECTS:${target}>)
  endforeach()
  add_test(NAME built_file COMMAND ${python} ${CMAKE_CURRENT_SOURCE_DIR}/built_file_test.py
    $<TARGET_FILE:korvane_vad> ${PROJECT_SOURCE_DIR}/exports.txt ${CMAKE_READELF} ${CMAKE_NM}
    ${core_objects} COMMAND_EXPAND_LISTS)
  add_test(NAME built_file.streams COMMAND ${python} ${CMAKE_CURRENT_SOURCE_DIR}/built_file_test.py --streams
    $<TARGET_FILE:korvane_streams> ${PROJECT_SOURCE_DIR}/streams/exports.txt ${CMAKE_READELF} ${CMAKE_NM}
    $<TARGET_OBJECTS:korvane_streams_parts> COMMAND_EXPAND_LISTS)
  set_tests_properties(built_file built_file.streams PROPERTIES ENVIRONMENT LC_ALL=C)
endif()

# Real speech from Debian's alsa-utils and asterisk-core-sounds-en-wav, read with libsndfile.
if(KORVANE_BUILD_TOOLS AND NOT CMAKE_CROSSCOMPILING)
  add_executable(speech_test speech_test.cpp)
  target_link_libraries(speech_test PRIVATE
    KorvaneVAD::korvane-vad korvane_warnings gtest_main PkgConfig::SNDFILE)
  gtest_discover_tests(speech_test TEST_PREFIX speech. DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT 300)
endif()

# The examples. Caller 7 is loud in the third second; the gate lets silence through as silence, and speech.
if(NOT CMAKE_CROSSCOMPILING AND TARGET example_many_streams)
  add_test(NAME examples.many_streams COMMAND example_many_streams)
  set_tests_properties(examples.many_streams PROPERTIES
    PASS_REGULAR_EXPRESSION "caller 7 spoke (1\\.9[4-9]|2\\.0[0-4])\\.\\.(2\\.9|3\\.[01])[0-9] s")
  add_test(NAME examples.microphone_gate
    COMMAND sh -c "head -c 960000 /dev/zero | \"$0\" | tr -d '\\0' | wc -c" $<TARGET_FILE:example_microphone_gate>)
  set_tests_properties(examples.microphone_gate PROPERTIES PASS_REGULAR_EXPRESSION "^0\n$")
  if(KORVANE_BUILD_TOOLS) # where alsa-utils and sox are; "front centre" is said in one go
    # Two words with a pause of 0.4 s, one segment or two.
    set(spoken "^0\\.[01][0-9]\\.\\.(0\\.[0-9]+ s[^\n]*\n0\\.[0-9]+\\.\\.)?1\\.[345][0-9] s")
    set(say "sox -R /usr/share/sounds/alsa/Front_Center.wav -r 16000 -t raw -")
    add_test(NAME examples.microphone_gate_opens
      COMMAND sh -c "${say} | \"$0\" | tr -d '\\0' | wc -c" $<TARGET_FILE:example_microphone_gate>)
    set_tests_properties(examples.microphone_gate_opens PROPERTIES PASS_REGULAR_EXPRESSION "^2[0-9][0-9][0-9][0-9]\n$")
    add_test(NAME examples.speech_times COMMAND sh -c "${say} | \"$0\"" $<TARGET_FILE:example_speech_times>)
    set_tests_properties(examples.speech_times PROPERTIES
      PASS_REGULAR_EXPRESSION "${spoken}, -1[0-9]\\.[0-9] dB, score [01]\\.[0-9]+\n$")
    # In other languages, where their compilers are.
    set(program ${CMAKE_CURRENT_BINARY_DIR}/speech_times)
    set(library $<TARGET_FILE:korvane_streams_static>)
    find_program(RUSTC rustc)
    if(RUSTC AND NOT KORVANE_INSTRUMENTED)
      add_test(NAME examples.rust COMMAND sh -euc "\"$0\" -O --edition 2021 -L \"native=$(dirname \"$2\")\" \
-l static=korvane-streams -l m -D warnings -o \"$3-rust\" \"$1\" && ${say} | \"$3-rust\""
        ${RUSTC} ${PROJECT_SOURCE_DIR}/examples/rust/speech_times.rs ${library} ${program})
      set_tests_properties(examples.rust PROPERTIES PASS_REGULAR_EXPRESSION "${spoken}\n$")
    endif()
    find_program(GO go)
    if(GO AND NOT KORVANE_INSTRUMENTED)
      add_test(NAME examples.go COMMAND sh -euc "\"$0\" build -o \"$3-go\" \"$1\" && ${say} | \"$3-go\""
        ${GO} ${PROJECT_SOURCE_DIR}/examples/go/speech_times.go ${library} ${program})
      set(environment GO111MODULE=off GOCACHE=${PROJECT_BINARY_DIR}/go CGO_ENABLED=1
        "CGO_CFLAGS='-I${PROJECT_SOURCE_DIR}/include'" "CGO_LDFLAGS='${library}' -lm")
      set_tests_properties(examples.go PROPERTIES
        PASS_REGULAR_EXPRESSION "${spoken}\n$" ENVIRONMENT "${environment}")
    endif()
  endif()
endif()
