# Third-party libraries under one set of names for native and armhf builds:
# shared, all but the C library linked in (CRASH_DUMP_FAST_START), or
# fully static (CRASH_DUMP_STATIC, armhf only):
#
#   deps::iostreams   Boost.Iostreams with zlib
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
# static archives. The libraries built in bring their tables, whose thousands
# of relative relocations a position-independent executable would pay for
# at each start too.
if(CRASH_DUMP_FAST_START)
  set(Boost_USE_STATIC_LIBS ON)
  add_link_options(-static-libstdc++ -static-libgcc $<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-no-pie>)
endif()

find_package(Boost 1.74 CONFIG REQUIRED COMPONENTS iostreams filesystem system)
find_package(fmt CONFIG REQUIRED)
find_package(ZLIB REQUIRED)
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(CRASH_DUMP_LIBCAP REQUIRED IMPORTED_TARGET libcap)

# Only the zlib filter is used: a static link takes no other codec's part of
# the archive, and so needs no other codec library.
add_library(crash_dump_dep_iostreams INTERFACE)
target_link_libraries(crash_dump_dep_iostreams INTERFACE Boost::iostreams ZLIB::ZLIB)
add_library(deps::iostreams ALIAS crash_dump_dep_iostreams)

add_library(crash_dump_dep_filesystem INTERFACE)
target_link_libraries(crash_dump_dep_filesystem INTERFACE Boost::filesystem Boost::system)
add_library(deps::filesystem ALIAS crash_dump_dep_filesystem)

add_library(crash_dump_dep_fmt INTERFACE)
if(CRASH_DUMP_STATIC OR CRASH_DUMP_FAST_START)
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
