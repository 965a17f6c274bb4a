# Warnings, relative source paths in assertion reports, and the sanitizer
# switch shared by every target of the project.

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wno-sign-conversion)
# Assertions that always fail are written !"what happened", so that the report
# names it; clang's -Wconversion would flag each of them.
add_compile_options($<$<CXX_COMPILER_ID:Clang>:-Wno-string-conversion>)

# Assertion reports name files relative to the source tree, whatever the
# build machine's checkout path was.
add_compile_options("-fmacro-prefix-map=${CMAKE_SOURCE_DIR}/=")

set(CRASH_DUMP_SANITIZE "" CACHE STRING
    "Comma-separated -fsanitize= list (address,undefined or thread)")
if(CRASH_DUMP_SANITIZE)
  add_compile_options(-fsanitize=${CRASH_DUMP_SANITIZE} -fno-omit-frame-pointer
                      -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${CRASH_DUMP_SANITIZE})
endif()

# 64-bit file offsets and inode numbers on the 32-bit target too: stat() and
# lseek() on large files and on 64-bit file systems must not fail with
# EOVERFLOW there.
add_compile_definitions(_FILE_OFFSET_BITS=64)
