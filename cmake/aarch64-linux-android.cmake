# Builds for 64-bit Arm Android without the Android kit: Debian's clang and lld, standard headers of
# Debian's arm64 cross packages, and stand-ins for the platform's libraries (android/standins). What comes
# out is meant for tests here. The compiler and linker flags are those of the kit's own toolchain file, so
# that what is tested is what the kit makes; only its start-up objects are missing.
set(CMAKE_SYSTEM_NAME Android)
set(CMAKE_SYSTEM_VERSION 1) # tells CMake to look for no kit
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(ANDROID_ABI arm64-v8a)
set(KORVANE_ANDROID_STANDINS ON)

# 21 is the first API level that has 64-bit Arm.
foreach(language C CXX)
  set(CMAKE_${language}_COMPILER_TARGET aarch64-linux-android21)
endforeach()
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_AR aarch64-linux-gnu-ar CACHE STRING "")
set(CMAKE_RANLIB aarch64-linux-gnu-ranlib CACHE STRING "")
set(CMAKE_NM aarch64-linux-gnu-nm CACHE STRING "")
set(CMAKE_READELF aarch64-linux-gnu-readelf CACHE STRING "")
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY) # a program would need start-up objects

set(headers /usr/aarch64-linux-gnu/include)
file(GLOB versions ${headers}/c++/*)
list(SORT versions COMPARE NATURAL)
list(POP_BACK versions cxx_headers)
set(flags "-DANDROID -g -fdata-sections -ffunction-sections -funwind-tables -fstack-protector-strong \
-no-canonical-prefixes -D_FORTIFY_SOURCE=2 -Wformat -Werror=format-security")
set(CMAKE_C_FLAGS_INIT "${flags} -nostdlibinc -idirafter ${headers}")
set(CMAKE_CXX_FLAGS_INIT "${flags} -nostdlibinc -nostdinc++ -isystem ${cxx_headers} \
-isystem ${cxx_headers}/aarch64-linux-gnu -idirafter ${headers}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-fuse-ld=lld -nostdlib -static-libstdc++ -Wl,--build-id=sha1 \
-Wl,--no-rosegment -Wl,--fatal-warnings -Wl,--no-undefined -Qunused-arguments")

set(CMAKE_FIND_ROOT_PATH ${headers})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
