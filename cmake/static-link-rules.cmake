# Loaded through CMAKE_USER_MAKE_RULES_OVERRIDE when CRASH_DUMP_STATIC or
# CRASH_DUMP_FAST_START is on: find_library() takes static archives
# only. The C library is no find_library() result and stays as the link has it.
set(CMAKE_FIND_LIBRARY_SUFFIXES ".a")
