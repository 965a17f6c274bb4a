#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "power_cut_trace.h"

namespace sim {

using InodeId = size_t;

// One state of a file's content.
struct ContentVersion {
    uint64_t written = 0;   // its size, as writes and truncations left it (for an earlier one: its size then)
    bool earlier = false;   // the content the file had before the run
};

// A file's content since the run began: each write, and each change of size
// by a truncation, adds a version. Storage may hold any version from the
// oldest one that an fsync or a sync made durable, to the newest. (A write
// through an O_SYNC descriptor gets no such credit: the trace does not show a
// descriptor's flags where it is written to.)
struct Inode {
    std::vector<ContentVersion> versions;
    size_t durable = 0;

    size_t Last() const { return versions.size() - 1; }
};

// What a name was bound to since its directory last reached storage, oldest
// first and the current binding last; an empty binding is an absent name.
// Storage may hold any of them.
using Binding = std::optional<InodeId>;
using NameHistory = std::vector<Binding>;

struct PreexistingFile {
    std::string path;
    uint64_t size = 0;
};

// What storage may hold after a power cut, file by file, under the weak
// guarantees POSIX gives: no ordering between files without a barrier, and
// a name reaches storage only through an fsync of its directory or a sync.
// The files listed as existing before the run start out durable. Any other
// path is absent until the trace creates it, or names a file from before the
// run (a device, a library) when the trace uses it without creating it.
class StorageModel {
public:
    explicit StorageModel(const std::vector<PreexistingFile>& files);

    void Apply(const FileOperation& op);

    const NameHistory& History(const std::string& path) const;
    // Every path in the directory that the listing or the trace named.
    std::vector<std::string> NamesIn(std::string_view directory) const;
    const Inode& File(InodeId id) const { return m_inodes[id]; }
    // The file an operation acts on: the one its path names, or for a
    // descriptor whose file lost that name, the file the name last had.
    std::optional<InodeId> FileOf(const FileOperation& op) const;

private:
    InodeId NewFile(ContentVersion first);
    void Bind(const std::string& path, Binding file);
    void Open(const FileOperation& op);
    void Resize(InodeId file, uint64_t size);
    InodeId Existing(const FileOperation& op);
    void Fsync(const FileOperation& op);
    void Sync();
    void ForgetHistory(const std::string& path);

    std::vector<Inode> m_inodes;
    std::map<std::string, NameHistory> m_names;
    std::map<std::string, InodeId> m_unbound;   // the file each name had before it was removed or replaced
};

// "/a/b/c" -> "/a/b".
std::string ParentDirectory(std::string_view path);

} // namespace sim
