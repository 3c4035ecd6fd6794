# Lets CMake generate the build files for macOS on another system. The variables answer every
# question for which CMake would run the compiler. The build files can be read, but not built.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_OSX_SYSROOT /)
set(CMAKE_CXX_COMPILER_ID AppleClang)
set(CMAKE_CXX_COMPILER_ID_RUN TRUE)
set(CMAKE_CXX_COMPILER_VERSION 14.0.0)
set(CMAKE_CXX_COMPILER_WORKS TRUE)
set(CMAKE_CXX_ABI_COMPILED TRUE)
set(CMAKE_CXX_STANDARD_COMPUTED_DEFAULT 98)
