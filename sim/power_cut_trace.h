#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "strace_log.h"

namespace sim {

// What a traced system call did to the file system, with the process's
// descriptors and working directory resolved: absolute paths, and open file
// descriptions numbered in the order they were opened (shared by dup, fork and
// exec, as the kernel shares them).
struct FileOperation {
    enum class Kind {
        Open,       // any successful open; flags below
        Write,      // content written through a description
        Rename,     // path -> target
        Link,       // path -> target
        Unlink,
        Fsync,      // fsync or fdatasync of a description, a file's or a directory's
        Sync,       // sync, or syncfs: the device has one file system for its data
    };

    Kind kind = Kind::Open;
    std::string process;     // "tar[4711]": the program the process runs, and its id
    std::string syscall;     // as traced: "creat", "pwrite64", "renameat2"
    std::string path;        // absolute; for a description, the path it was opened by
    std::string target;      // Rename and Link: the new name
    unsigned description = 0;  // from 1 on; 0 for an operation by path
    bool create = false;     // Open: O_CREAT
    bool truncate = false;   // Open: O_TRUNC
    bool synchronous = false; // Open: O_SYNC or O_DSYNC, each write reaches storage before it returns
    uint64_t bytes = 0;      // Write: bytes written
};

// Follows descriptors through open, dup, fcntl, close, fork and exec (which
// closes the close-on-exec ones), and working directories through chdir, to
// turn calls into file operations. Failed calls and calls on descriptors that
// are not files (pipes, inherited ones) are left out.
std::vector<FileOperation> ResolveFileOperations(const std::vector<Syscall>& calls);

// The system calls to trace for ResolveFileOperations ("strace -e trace=...").
std::string TracedSyscalls();

} // namespace sim
