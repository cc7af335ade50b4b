# Builds for 64-bit ARM with Debian's cross compiler and the packages that scripts/arm64 unpacks, and
# runs what is built under qemu.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64-static)

cmake_path(SET CMAKE_SYSROOT NORMALIZE "${CMAKE_CURRENT_LIST_DIR}/../build/arm64-packages")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR} ${CMAKE_SYSROOT}/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/pkgconfig)

# Programs find the loader and the libraries by themselves. Given to qemu as a prefix, the unpacked
# packages would come before this machine's files in all that a program does with files.
string(CONCAT CMAKE_EXE_LINKER_FLAGS_INIT
       "-Wl,--dynamic-linker=${CMAKE_SYSROOT}/lib/ld-linux-aarch64.so.1 -Wl,--disable-new-dtags "
       "-Wl,-rpath,${CMAKE_SYSROOT}/lib/${CMAKE_LIBRARY_ARCHITECTURE} "
       "-Wl,-rpath,${CMAKE_SYSROOT}/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}")
