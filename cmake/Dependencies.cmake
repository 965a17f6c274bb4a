# Every dependency comes from the distribution's packages.

find_package(Boost 1.74 REQUIRED COMPONENTS iostreams filesystem system)
find_package(ZLIB REQUIRED)
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(LIBCAP REQUIRED IMPORTED_TARGET libcap)

if(CRASH_DUMP_STATIC)
  # The distribution ships fmt only as a shared library; the static build
  # compiles it in header-only form instead.
  find_package(fmt REQUIRED)
  set(CRASH_DUMP_FMT fmt::fmt-header-only)
  set(Boost_USE_STATIC_LIBS ON)
else()
  find_package(fmt REQUIRED)
  set(CRASH_DUMP_FMT fmt::fmt)
endif()

if(CRASH_DUMP_TESTS)
  find_package(GTest REQUIRED)
endif()
