# Third-party libraries under one set of names for native and armhf builds:
# shared, all but the C library linked in (CRASH_DUMP_SHARED_LIBC_ONLY), or
# fully static (CRASH_DUMP_STATIC, armhf only):
#
#   deps::iostreams   Boost.Iostreams, plus the compression libraries its
#                     static archive needs in a fully static link
#   deps::filesystem  Boost.Filesystem (Boost.System comes along)
#   deps::fmt         libfmt; header-only when linked in, Debian ships no libfmt.a
#   deps::cap         libcap, through pkg-config
#   deps::zlib        zlib
include_guard(GLOBAL)

if(CRASH_DUMP_STATIC)
  # The toolchain file is what adds -static and makes find_library() settle
  # for static archives only.
  if(NOT CMAKE_CROSSCOMPILING)
    message(FATAL_ERROR "CRASH_DUMP_STATIC is for the board: use cmake/toolchain-armhf.cmake")
  endif()
  set(Boost_USE_STATIC_LIBS ON)
endif()
# Each shared library costs every start of the collector, so every boot, its
# loading and relocation; libstdc++'s relocations cost the most. The rules
# file that the top-level CMakeLists.txt loads makes find_library() take
# static archives.
if(CRASH_DUMP_SHARED_LIBC_ONLY)
  set(Boost_USE_STATIC_LIBS ON)
  add_link_options(-static-libstdc++ -static-libgcc)
endif()

find_package(Boost 1.74 CONFIG REQUIRED COMPONENTS iostreams filesystem system)
find_package(fmt CONFIG REQUIRED)
find_package(ZLIB REQUIRED)
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(CRASH_DUMP_LIBCAP REQUIRED IMPORTED_TARGET libcap)

add_library(crash_dump_dep_iostreams INTERFACE)
target_link_libraries(crash_dump_dep_iostreams INTERFACE Boost::iostreams ZLIB::ZLIB)
if(CRASH_DUMP_STATIC)
  # Debian's Boost CMake files leave the codec libraries out of the static
  # variant; the shared library records them itself.
  find_package(BZip2 REQUIRED)
  find_package(LibLZMA REQUIRED)
  find_library(CRASH_DUMP_ZSTD_LIBRARY NAMES zstd REQUIRED)
  target_link_libraries(crash_dump_dep_iostreams INTERFACE
    BZip2::BZip2 LibLZMA::LibLZMA "${CRASH_DUMP_ZSTD_LIBRARY}")
endif()
add_library(deps::iostreams ALIAS crash_dump_dep_iostreams)

add_library(crash_dump_dep_filesystem INTERFACE)
target_link_libraries(crash_dump_dep_filesystem INTERFACE Boost::filesystem Boost::system)
add_library(deps::filesystem ALIAS crash_dump_dep_filesystem)

add_library(crash_dump_dep_fmt INTERFACE)
if(CRASH_DUMP_STATIC OR CRASH_DUMP_SHARED_LIBC_ONLY)
  target_link_libraries(crash_dump_dep_fmt INTERFACE fmt::fmt-header-only)
else()
  target_link_libraries(crash_dump_dep_fmt INTERFACE fmt::fmt)
endif()
add_library(deps::fmt ALIAS crash_dump_dep_fmt)

# Wrapped rather than aliased: an alias of an imported target is visible only
# below the directory that included this file.
add_library(crash_dump_dep_cap INTERFACE)
target_link_libraries(crash_dump_dep_cap INTERFACE PkgConfig::CRASH_DUMP_LIBCAP)
add_library(deps::cap ALIAS crash_dump_dep_cap)

add_library(crash_dump_dep_zlib INTERFACE)
target_link_libraries(crash_dump_dep_zlib INTERFACE ZLIB::ZLIB)
add_library(deps::zlib ALIAS crash_dump_dep_zlib)

if(BUILD_TESTING)
  find_package(GTest CONFIG REQUIRED)
endif()
