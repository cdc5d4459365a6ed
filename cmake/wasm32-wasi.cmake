# Builds for WebAssembly with WASI, with Debian's clang 19; what is built runs under Node.js.
set(CMAKE_SYSTEM_NAME Generic) # has no shared libraries
set(CMAKE_SYSTEM_PROCESSOR wasm32)
set(CMAKE_C_COMPILER clang-19)
set(CMAKE_CXX_COMPILER clang++-19)
set(CMAKE_C_COMPILER_TARGET wasm32-wasi)
set(CMAKE_CXX_COMPILER_TARGET wasm32-wasi)
