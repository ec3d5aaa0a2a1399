# The panel's processor: i.MX6, a Cortex-A9, armv7-a with hardware floating point in 16 registers (no NEON: not every
# part has it), Thumb-2 (see docs/porting.md for the comparison with the ARM set).
#
# Works with any GCC cross compiler and any sysroot, Debian's multiarch layout or a board SDK's flat one:
#   -DVELCAM_SYSROOT=DIR          where the target's headers and libraries are; needed
#   -DVELCAM_CROSS=PREFIX         the compiler's name up to "gcc", with its path when it is not in PATH
#   -DVELCAM_INSTRUCTIONS=thumb|arm
# Without the first two, an SDK's environment (SDKTARGETSYSROOT, CROSS_COMPILE) is asked.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)

# Trial builds read this file as well and know only what is listed here.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES VELCAM_SYSROOT VELCAM_CROSS VELCAM_INSTRUCTIONS)

set(VELCAM_SYSROOT "$ENV{SDKTARGETSYSROOT}" CACHE PATH "The target's root: headers and libraries")
set(velcam_cross arm-linux-gnueabihf-)
if(DEFINED ENV{CROSS_COMPILE})
    set(velcam_cross "$ENV{CROSS_COMPILE}")
endif()
set(VELCAM_CROSS "${velcam_cross}" CACHE STRING "The cross compiler's prefix")
set(VELCAM_INSTRUCTIONS thumb CACHE STRING "Instruction set: thumb or arm")
set_property(CACHE VELCAM_INSTRUCTIONS PROPERTY STRINGS thumb arm)
if(NOT IS_DIRECTORY "${VELCAM_SYSROOT}")
    message(FATAL_ERROR "VELCAM_SYSROOT is '${VELCAM_SYSROOT}': give the target's root, or let scripts/build-arm.sh make one")
endif()

set(CMAKE_SYSROOT "${VELCAM_SYSROOT}")
set(CMAKE_C_COMPILER "${VELCAM_CROSS}gcc")
set(CMAKE_CXX_COMPILER "${VELCAM_CROSS}g++")

# -Wno-psabi silences only GCC's note that argument passing changed in GCC 7.1.
set(velcam_flags "-march=armv7-a -mfpu=vfpv3-d16 -mfloat-abi=hard -m${VELCAM_INSTRUCTIONS} -Wno-psabi")
set(CMAKE_C_FLAGS_INIT "${velcam_flags}")
set(CMAKE_CXX_FLAGS_INIT "${velcam_flags}")

# Programs are this machine's, everything else the target's.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${VELCAM_SYSROOT}")
set(ENV{PKG_CONFIG_LIBDIR}
    "${VELCAM_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${VELCAM_SYSROOT}/usr/lib/pkgconfig:${VELCAM_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")

# Tests, where they are built, run in an emulator. Its static variant: a preloaded library is then the program's alone.
find_program(VELCAM_EMULATOR NAMES qemu-arm-static qemu-arm)
if(VELCAM_EMULATOR)
    set(CMAKE_CROSSCOMPILING_EMULATOR "${VELCAM_EMULATOR};-L;${VELCAM_SYSROOT}")
endif()
