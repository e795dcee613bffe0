# Toolchain for arm64 Linux on another processor: Debian's cross compiler, and Debian's arm64 libraries in a folder
# (script/arm64).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

cmake_path(SET arm64_root NORMALIZE ${CMAKE_CURRENT_LIST_DIR}/../build/arm64-root/full)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64-static;-L;${arm64_root})
# Files that are missing there, such as jni.h and headers without a library, come from the machine.
set(CMAKE_FIND_ROOT_PATH ${arm64_root})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(ENV{PKG_CONFIG_LIBDIR} ${arm64_root}/usr/lib/aarch64-linux-gnu/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${arm64_root})
# libusb needs libudev, which no target here links.
set(CMAKE_EXE_LINKER_FLAGS_INIT -Wl,-rpath-link,${arm64_root}/usr/lib/aarch64-linux-gnu)
