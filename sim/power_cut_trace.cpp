#include "power_cut_trace.h"

#include <map>
#include <optional>
#include <set>
#include <utility>

namespace sim {

namespace {

using Kind = FileOperation::Kind;

// Calls that change no file's content and no name, whatever they are given.
// The ones that start or name processes are followed for the paths and the
// messages.
const std::set<std::string, std::less<>> kHarmless = {
    "access", "faccessat", "faccessat2", "stat", "lstat", "fstat", "newfstatat", "statx", "statfs", "fstatfs",
    "readlink", "readlinkat", "getdents64", "getxattr", "lgetxattr", "fgetxattr", "listxattr", "flistxattr",
    "read", "readv", "pread64", "preadv", "preadv2", "lseek", "fadvise64", "flock", "sync_file_range", "close",
    "close_range", "dup", "dup2", "dup3", "fcntl", "poll", "ppoll", "select", "pselect6", "getcwd", "chdir",
    "fchdir", "chroot", "execve", "clone", "clone3", "fork", "vfork",
};

// The calls older than the *at family that take paths relative to the working
// directory; every later one takes a directory descriptor with its path, and
// a string of any other call is data unless it is absolute.
const std::set<std::string, std::less<>> kRelativePaths = {
    "mkdir", "rmdir", "mknod", "symlink", "chmod", "chown", "lchown", "utime", "utimes", "setxattr",
    "lsetxattr", "removexattr", "lremovexattr", "umount2", "swapon", "acct", "pivot_root",
};

bool HasFlag(std::string_view flags, std::string_view flag)
{
    for (size_t start = 0; start <= flags.size();) {
        const size_t end = std::min(flags.find('|', start), flags.size());
        if (flags.substr(start, end - start) == flag)
            return true;
        start = end + 1;
    }
    return false;
}

// ".." is taken lexically: the device's output paths have no symbolic links.
std::string Normalize(std::string_view path)
{
    std::vector<std::string_view> parts;
    for (size_t start = 0; start < path.size();) {
        const size_t end = std::min(path.find('/', start), path.size());
        const std::string_view part = path.substr(start, end - start);
        if (part == "..") {
            if (!parts.empty())
                parts.pop_back();
        } else if (!part.empty() && part != ".") {
            parts.push_back(part);
        }
        start = end + 1;
    }
    std::string normal;
    for (std::string_view part : parts)
        normal.append("/").append(part);
    return normal.empty() ? "/" : normal;
}

struct Process {
    std::string program = "?";
    std::string directory = "/";   // the working directory, inside the device
};

using Path = std::optional<std::string>;   // inside the device; none for a file outside it

class Resolver {
public:
    Resolver(std::string_view root, std::string_view directory) : m_root(root), m_directory(directory) {}

    std::vector<FileOperation> Resolve(const std::vector<Syscall>& calls)
    {
        for (const Syscall& call : calls) {
            if (call.result < 0)
                continue;
            Process& process = m_processes[call.pid];
            Follow(call, process);
            const auto handler = kHandlers.find(call.name);
            if (handler != kHandlers.end())
                (this->*handler->second)(call, process);
            else if (kHarmless.count(call.name) == 0)
                Unknown(call, process);
        }
        return std::move(m_operations);
    }

    using Handler = void (Resolver::*)(const Syscall&, const Process&);
    static const std::map<std::string, Handler, std::less<>> kHandlers;

private:
    // Processes inherit their program and working directory; -y shows the
    // working directory with every AT_FDCWD.
    void Follow(const Syscall& call, Process& process)
    {
        for (const std::string& arg : call.args) {
            if (arg.rfind("AT_FDCWD<", 0) == 0)
                process.directory = Device(*DescriptorPath(arg)).value_or("/");
        }
        if (call.name == "clone" || call.name == "clone3" || call.name == "fork" || call.name == "vfork")
            m_processes[static_cast<pid_t>(call.result)] = process;
        else if (call.name == "execve") {
            const std::string program = Unquote(call.args.at(0));
            process.program = program.substr(program.rfind('/') + 1);
        } else if (call.name == "chdir" || call.name == "fchdir") {
            process.directory = (call.name == "chdir" ? Named(call, process, 0) : File(call, 0)).value_or("/");
        }
    }

    void Open(const Syscall& call, const Process& process)
    {
        const bool at = call.name == "openat";
        const std::string flags = call.name == "creat" ? "O_CREAT|O_TRUNC" : call.args.at(at ? 2 : 1);
        const Path path = Named(call, process, at);
        if (path && HasFlag(flags, "O_TMPFILE"))
            Refuse(call, process, *path);
        if (!path || !(HasFlag(flags, "O_CREAT") || HasFlag(flags, "O_TRUNC")))
            return;
        FileOperation& op = Add(call, process, Kind::Open, *path);
        op.create = HasFlag(flags, "O_CREAT");
        op.truncate = HasFlag(flags, "O_TRUNC");
    }

    // write(fd, ...), sendfile(out, ...), copy_file_range(in, off, out, ...),
    // splice(in, off, out, ...): the descriptor written to.
    void Write(const Syscall& call, const Process& process)
    {
        const bool third = call.name == "copy_file_range" || call.name == "splice";
        if (call.result > 0)
            ThroughDescriptor(call, process, Kind::Write, third ? 2 : 0, static_cast<uint64_t>(call.result));
    }

    void Truncate(const Syscall& call, const Process& process)
    {
        const auto length = static_cast<uint64_t>(std::stoll(call.args.at(1), nullptr, 0));
        if (call.name == "ftruncate")
            ThroughDescriptor(call, process, Kind::Truncate, 0, length);
        else if (const Path path = Named(call, process, 0))
            Add(call, process, Kind::Truncate, *path).length = length;
    }

    void Fsync(const Syscall& call, const Process& process) { ThroughDescriptor(call, process, Kind::Fsync, 0, 0); }

    void Sync(const Syscall& call, const Process& process) { Add(call, process, Kind::Sync, ""); }

    // rename(a, b), renameat(d, a, d, b) and renameat2, link and linkat.
    void Rebind(const Syscall& call, const Process& process)
    {
        const bool at = call.name.find("at") != std::string::npos;
        const Path path = Named(call, process, at), target = Named(call, process, at ? 3 : 1);
        const std::string flags = call.args.size() > 4 ? call.args[4] : "";
        // Swapping two names, a whiteout, a link to a descriptor's file (one
        // made with O_TMPFILE), or the directory itself moving.
        const bool unmodelled = HasFlag(flags, "RENAME_EXCHANGE") || HasFlag(flags, "RENAME_WHITEOUT")
            || HasFlag(flags, "AT_EMPTY_PATH") || path == m_directory || target == m_directory;
        for (const Path& name : {path, target}) {
            if (name && unmodelled)
                Refuse(call, process, *name);
        }
        if (path && target)
            Add(call, process, call.name[0] == 'r' ? Kind::Rename : Kind::Link, *path).target = *target;
    }

    void Unlink(const Syscall& call, const Process& process)
    {
        const bool at = call.name == "unlinkat";
        const Path path = Named(call, process, at);
        if (path && at && HasFlag(call.args.at(2), "AT_REMOVEDIR"))
            Refuse(call, process, *path);
        else if (path)
            Add(call, process, Kind::Unlink, *path);
    }

    // A shared mapping of a file changes it by stores the trace never sees.
    void Map(const Syscall& call, const Process& process)
    {
        const Path file = File(call, 4);
        if (file && !HasFlag(call.args.at(3), "MAP_PRIVATE"))
            Refuse(call, process, *file);
    }

    // Requests to these queues are not system calls of their own.
    void Queue(const Syscall& call, const Process& process)
    {
        throw UnmodelledCall(
            "not modelled: " + Label(call, process) + " " + call.name + ", whose requests the trace cannot see");
    }

    // Anything else: every descriptor and every path that it was given, the
    // last first (a mount's target before its source).
    void Unknown(const Syscall& call, const Process& process)
    {
        for (size_t i = call.args.size(); i-- > 0;) {
            if (const Path file = File(call, i))
                Refuse(call, process, *file);
            if (call.args[i].rfind('"', 0) != 0)
                continue;
            if (const Path path = Named(call, process, i, kRelativePaths.count(call.name) != 0))
                Refuse(call, process, *path);
        }
    }

    // Throws if the path is the dump directory or in it.
    void Refuse(const Syscall& call, const Process& process, const std::string& path) const
    {
        if (path == m_directory || path.rfind(m_directory + "/", 0) == 0)
            throw UnmodelledCall("not modelled: " + Label(call, process) + " " + call.name + " " + path);
    }

    void ThroughDescriptor(const Syscall& call, const Process& process, Kind kind, size_t fd, uint64_t length)
    {
        bool unlinked = false;
        if (const Path file = File(call, fd, &unlinked)) {
            FileOperation& op = Add(call, process, kind, *file);
            op.unlinked = unlinked;
            op.length = length;
        }
    }

    // A host path as the tracer printed it, inside the device.
    Path Device(const std::string& host) const
    {
        if (host == m_root)
            return "/";
        if (host.rfind(m_root + "/", 0) != 0)
            return std::nullopt;
        return host.substr(m_root.size());
    }

    // The file of the descriptor argument i; -y marks one that lost its name
    // since it was opened ("3</d/f>(deleted)").
    Path File(const Syscall& call, size_t i, bool* unlinked = nullptr) const
    {
        const std::string& arg = call.args.at(i);
        if (unlinked != nullptr)
            *unlinked = arg.size() > 9 && arg.compare(arg.size() - 9, 9, "(deleted)") == 0;
        const std::optional<std::string> host = DescriptorPath(arg);
        return host ? Device(*host) : std::nullopt;
    }

    // Argument i, a path: absolute, relative to the directory descriptor
    // before it, or else to the working directory (if the call takes one).
    Path Named(const Syscall& call, const Process& process, size_t i, bool relative_to_cwd = true) const
    {
        const std::string path = Unquote(call.args.at(i));
        const Path directory = path[0] == '/'           ? ""
            : i > 0 && DescriptorPath(call.args[i - 1]) ? File(call, i - 1)
            : relative_to_cwd                           ? process.directory
                                                        : Path();
        return directory ? Path(Normalize(*directory + "/" + path)) : std::nullopt;
    }

    static std::string Label(const Syscall& call, const Process& process)
    {
        return process.program + "[" + std::to_string(call.pid) + "]";
    }

    FileOperation& Add(const Syscall& call, const Process& process, Kind kind, std::string path)
    {
        FileOperation& op = m_operations.emplace_back();
        op.kind = kind;
        op.process = Label(call, process);
        op.syscall = call.name;
        op.path = std::move(path);
        return op;
    }

    std::string m_root;
    std::string m_directory;
    std::map<pid_t, Process> m_processes;
    std::vector<FileOperation> m_operations;
};

const std::map<std::string, Resolver::Handler, std::less<>> Resolver::kHandlers = {
    {"open", &Resolver::Open}, {"openat", &Resolver::Open}, {"creat", &Resolver::Open},
    {"write", &Resolver::Write}, {"writev", &Resolver::Write}, {"pwrite64", &Resolver::Write},
    {"pwritev", &Resolver::Write}, {"pwritev2", &Resolver::Write}, {"sendfile", &Resolver::Write},
    {"copy_file_range", &Resolver::Write}, {"splice", &Resolver::Write}, {"truncate", &Resolver::Truncate},
    {"ftruncate", &Resolver::Truncate}, {"fsync", &Resolver::Fsync}, {"fdatasync", &Resolver::Fsync},
    {"sync", &Resolver::Sync}, {"syncfs", &Resolver::Sync}, {"rename", &Resolver::Rebind},
    {"renameat", &Resolver::Rebind}, {"renameat2", &Resolver::Rebind}, {"link", &Resolver::Rebind},
    {"linkat", &Resolver::Rebind}, {"unlink", &Resolver::Unlink}, {"unlinkat", &Resolver::Unlink},
    {"mmap", &Resolver::Map}, {"io_uring_setup", &Resolver::Queue}, {"io_setup", &Resolver::Queue},
};

} // namespace

std::vector<FileOperation> ResolveFileOperations(
    const std::vector<Syscall>& calls, std::string_view root, std::string_view directory)
{
    return Resolver(root, directory).Resolve(calls);
}

} // namespace sim
