# 32-bit ARM with hardware floating point, as the device has it. clang and lld are this machine's. Headers and
# libraries are only those of the root file system at TEV_SYSROOT (dev/make-sysroot). What a build or CTest runs, it
# runs under an emulator.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)

set(TEV_SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../build/sysroot"
    CACHE PATH "Root file system with the device's headers and libraries")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TEV_SYSROOT)
get_filename_component(CMAKE_SYSROOT "${TEV_SYSROOT}" ABSOLUTE)

set(device_triple arm-linux-gnueabihf)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_CXX_COMPILER_TARGET ${device_triple})
set(CMAKE_CXX_COMPILER_EXTERNAL_TOOLCHAIN ${CMAKE_SYSROOT}/usr)
set(CMAKE_CXX_FLAGS_INIT "-march=armv7-a+fp -mthumb")
set(CMAKE_LIBRARY_ARCHITECTURE ${device_triple})
foreach(kind IN ITEMS EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "-fuse-ld=lld")
endforeach()

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR}
    ${CMAKE_SYSROOT}/usr/lib/${device_triple}/pkgconfig:${CMAKE_SYSROOT}/usr/lib/pkgconfig)

# Where a file exists below -L, an emulated program sees that instead of this machine's.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm-static -L ${CMAKE_SYSROOT})
