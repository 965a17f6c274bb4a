# Cross build for the player's 32-bit ARM board (armv7-a, hard float) with
# Debian's arm-linux-gnueabihf-gcc 12 and the sysroot that
# scripts/target/setup-armhf.sh assembles.
#
#   cmake -S . -B build-armhf -G Ninja \
#         -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-armhf.cmake [-DCRASH_DUMP_STATIC=ON]
#
# The sysroot is looked up in CRASH_DUMP_SYSROOT (cache or environment), then
# under CRASH_DUMP_TARGET_CACHE, default /var/cache/crash-dump-target.
#
# Debian's cross gcc takes libc and libstdc++ headers and link stubs from its
# own /usr/arm-linux-gnueabihf tree and searches the sysroot after them; the
# sysroot supplies every other library, and the runtime loader and shared
# libraries that qemu-arm uses when ctest runs the unit tests.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

# try_compile() re-reads this file in a scratch project that sees no cache
# entries of ours unless they are forwarded.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES CRASH_DUMP_SYSROOT CRASH_DUMP_STATIC)

if(NOT CRASH_DUMP_SYSROOT)
  if(DEFINED ENV{CRASH_DUMP_SYSROOT})
    set(_sysroot "$ENV{CRASH_DUMP_SYSROOT}")
  elseif(DEFINED ENV{CRASH_DUMP_TARGET_CACHE})
    set(_sysroot "$ENV{CRASH_DUMP_TARGET_CACHE}/sysroot")
  else()
    set(_sysroot "/var/cache/crash-dump-target/sysroot")
  endif()
  set(CRASH_DUMP_SYSROOT "${_sysroot}" CACHE PATH "armhf sysroot made by scripts/target/setup-armhf.sh")
endif()
if(NOT EXISTS "${CRASH_DUMP_SYSROOT}/usr/include/boost/version.hpp")
  message(FATAL_ERROR "No armhf sysroot at ${CRASH_DUMP_SYSROOT}: run scripts/target/setup-armhf.sh")
endif()

option(CRASH_DUMP_STATIC "Link executables fully statically" OFF)

set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc-12)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++-12)
set(CMAKE_SYSROOT "${CRASH_DUMP_SYSROOT}")

set(CMAKE_FIND_ROOT_PATH "${CRASH_DUMP_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# pkg-config must see the armhf .pc files only, and prefix what they print
# with the sysroot.
set(ENV{PKG_CONFIG_PATH} "")
set(ENV{PKG_CONFIG_LIBDIR}
    "${CRASH_DUMP_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${CRASH_DUMP_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${CRASH_DUMP_SYSROOT}")

find_program(CRASH_DUMP_QEMU_ARM NAMES qemu-arm qemu-arm-static)
if(CRASH_DUMP_QEMU_ARM)
  set(CMAKE_CROSSCOMPILING_EMULATOR "${CRASH_DUMP_QEMU_ARM};-L;${CRASH_DUMP_SYSROOT}")
endif()

if(CRASH_DUMP_STATIC)
  set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
  # Prefer .a over .so in every find_library(), including the ones made by
  # pkg_check_modules(IMPORTED_TARGET). The platform files would reset the
  # suffix list after this file, hence the override hook.
  set(CMAKE_USER_MAKE_RULES_OVERRIDE "${CMAKE_CURRENT_LIST_DIR}/static-link-rules.cmake")
  set(Boost_USE_STATIC_LIBS ON)
endif()
