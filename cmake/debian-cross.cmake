# Builds for another machine with Debian's cross compilers, against the libraries that
# scripts/make-sysroot has fetched. A preset says which machine: AITCAM_TARGET is armhf or arm64.
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES AITCAM_TARGET)
if(AITCAM_TARGET STREQUAL "armhf")
  set(triplet arm-linux-gnueabihf)
  set(CMAKE_SYSTEM_PROCESSOR armv7l)
  set(qemu qemu-arm)
  # Says nothing of our code, and that at each use of a container.
  set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
elseif(AITCAM_TARGET STREQUAL "arm64")
  set(triplet aarch64-linux-gnu)
  set(CMAKE_SYSTEM_PROCESSOR aarch64)
  set(qemu qemu-aarch64)
else()
  message(FATAL_ERROR "AITCAM_TARGET is armhf or arm64, not '${AITCAM_TARGET}'")
endif()

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)
set(CMAKE_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot/${AITCAM_TARGET})
cmake_path(NORMAL_PATH CMAKE_SYSROOT)
set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# What was built runs here, too.
set(CMAKE_CROSSCOMPILING_EMULATOR ${qemu} -L ${CMAKE_SYSROOT})

set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR}
  ${CMAKE_SYSROOT}/usr/lib/${triplet}/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)
