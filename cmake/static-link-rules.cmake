# Loaded through CMAKE_USER_MAKE_RULES_OVERRIDE when CRASH_DUMP_STATIC is on:
# only static archives can go into a -static link.
set(CMAKE_FIND_LIBRARY_SUFFIXES ".a")
