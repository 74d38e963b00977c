# Toolchain for the device: 32-bit ARM with hardware floating point, against a Debian sysroot that
# `scripts/board --sysroot` unpacks. Programs of the build, its tests among them, run under
# user-mode emulation.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

set(BOOTLUME_SYSROOT "$ENV{BOOTLUME_SYSROOT}" CACHE PATH "Debian root for armhf")
if(NOT EXISTS "${BOOTLUME_SYSROOT}/usr/include")
  message(FATAL_ERROR "There is no armhf sysroot in '${BOOTLUME_SYSROOT}': set BOOTLUME_SYSROOT to what "
                      "scripts/board --sysroot prints")
endif()
set(CMAKE_SYSROOT "${BOOTLUME_SYSROOT}")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES BOOTLUME_SYSROOT)

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# pkg-config looks nowhere but into the sysroot.
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${CMAKE_SYSROOT}")
set(ENV{PKG_CONFIG_LIBDIR}
    "${CMAKE_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")

# What a test starts in its turn is emulated through binfmt, which takes the sysroot from the
# environment.
find_program(BOOTLUME_ENV env)
set(CMAKE_CROSSCOMPILING_EMULATOR
    ${BOOTLUME_ENV};QEMU_LD_PREFIX=${CMAKE_SYSROOT};BOOTLUME_EMULATED=1;qemu-arm-static;-L;${CMAKE_SYSROOT})
