# Compiles and links for macOS on Linux: clang and LLVM's tools with the SDK that sdk.py assembles.
# Reads SDK, the folder of the SDK, and LLVM, the folder of LLVM's programs, from the environment.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_OSX_SYSROOT $ENV{SDK} CACHE PATH "")
set(CMAKE_CXX_COMPILER $ENV{LLVM}/clang++)
# The target has no version, so that CMakeLists.txt determines the oldest system.
set(CMAKE_CXX_COMPILER_TARGET ${CMAKE_OSX_ARCHITECTURES}-apple-darwin)
# Zig's copy of libc++ has no __config_site, which defines these.
set(CMAKE_CXX_FLAGS_INIT "-Wunguarded-availability -stdlib=libc++ -D_LIBCPP_ABI_VERSION=1 -D_LIBCPP_ABI_NAMESPACE=__1")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-fuse-ld=lld -stdlib=libc++")
set(CMAKE_AR $ENV{LLVM}/llvm-ar)
set(CMAKE_RANLIB $ENV{LLVM}/llvm-ranlib)
set(CMAKE_INSTALL_NAME_TOOL $ENV{LLVM}/llvm-install-name-tool)
