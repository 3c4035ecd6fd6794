# Lets CMake generate the build for macOS on another system. CMake does not run the compiler, so the
# generated files can be read, but not built.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_OSX_SYSROOT /)
set(CMAKE_CXX_COMPILER_ID AppleClang)
set(CMAKE_CXX_COMPILER_ID_RUN TRUE)
set(CMAKE_CXX_COMPILER_VERSION 14.0.0)
set(CMAKE_CXX_COMPILER_WORKS TRUE)
set(CMAKE_CXX_ABI_COMPILED TRUE)
set(CMAKE_CXX_STANDARD_COMPUTED_DEFAULT 98)
