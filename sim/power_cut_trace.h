#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "strace_log.h"

namespace sim {

// What a traced system call did to the device's files, with paths inside the
// device. A descriptor is known by the name its file had when the call was made
// (strace -y), so writes through a descriptor that tar opened and bzip2
// inherited land on the archive without following descriptors.
struct FileOperation {
    enum class Kind {
        Open,       // an open with O_CREAT or O_TRUNC; flags below
        Write,      // content written through a descriptor
        Truncate,   // truncate or ftruncate to `length`
        Rename,     // path -> target
        Link,       // path -> target
        Unlink,
        Fsync,      // fsync or fdatasync of a file or a directory
        Sync,       // sync, or syncfs: the device has one file system for its data
    };

    Kind kind = Kind::Open;
    std::string process;     // "tar[4711]": the program the process runs, and its id
    std::string syscall;     // as traced: "creat", "pwrite64", "renameat2"
    std::string path;        // absolute, inside the device
    std::string target;      // Rename and Link: the new name
    bool unlinked = false;   // through a descriptor whose file lost the name `path` since it was opened
    bool create = false;     // Open: O_CREAT
    bool truncate = false;   // Open: O_TRUNC
    uint64_t length = 0;     // Write: bytes written; Truncate: the new size
};

// A call that changes `directory` or a file in it in a way the storage model
// has no rule for: the analysis cannot give a verdict.
class UnmodelledCall : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Turns the calls of "strace -f -y", run outside the device's chroot, into
// file operations: `root` is the device root as the tracer sees it. Every call
// is looked at: one that cannot change a file or a name is dropped, one the
// model knows becomes an operation, and any other that touches `directory`
// throws UnmodelledCall. Failed calls change nothing.
std::vector<FileOperation> ResolveFileOperations(const std::vector<Syscall>& calls, std::string_view root,
                                                 std::string_view directory);

} // namespace sim
