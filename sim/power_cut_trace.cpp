#include "power_cut_trace.h"

#include <map>
#include <memory>
#include <stdexcept>
#include <utility>

namespace sim {

namespace {

using Kind = FileOperation::Kind;

struct Descriptor {
    unsigned description = 0;
    bool close_on_exec = false;
};

using DescriptorTable = std::map<int, Descriptor>;

// A process's view: descriptor table and working directory, each shared with
// the processes it was cloned with CLONE_FILES or CLONE_FS.
struct Process {
    std::shared_ptr<DescriptorTable> descriptors = std::make_shared<DescriptorTable>();
    std::shared_ptr<std::string> directory = std::make_shared<std::string>("/");
    std::string program = "?";
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

int Number(const std::string& argument)
{
    return static_cast<int>(std::stol(argument, nullptr, 0));
}

// The flags of clone ("flags=CLONE_VM|...") and clone3 ("{flags=..., ...}").
std::string CloneFlags(const Syscall& call)
{
    for (const std::string& arg : call.args) {
        const size_t at = arg.find("flags=");
        if (at != std::string::npos)
            return arg.substr(at + 6, arg.find_first_of(",}", at) - at - 6);
    }
    return "";
}

class Resolver {
public:
    std::vector<FileOperation> Resolve(const std::vector<Syscall>& calls)
    {
        for (const Syscall& call : calls) {
            if (call.result < 0)
                continue;
            const auto handler = kHandlers.find(call.name);
            if (handler != kHandlers.end())
                (this->*handler->second)(call, m_processes[call.pid]);
        }
        return std::move(m_operations);
    }

    using Handler = void (Resolver::*)(const Syscall&, Process&);
    static const std::map<std::string, Handler, std::less<>> kHandlers;

private:

    void Open(const Syscall& call, Process& process)
    {
        const bool at = call.name == "openat";
        const bool creat = call.name == "creat";
        const std::string flags = creat ? "O_WRONLY|O_CREAT|O_TRUNC" : call.args.at(at ? 2 : 1);
        FileOperation op = Operation(call, Kind::Open, Path(process, at ? call.args[0] : "AT_FDCWD", call.args[at]));
        m_description_paths.push_back(op.path);
        op.description = static_cast<unsigned>(m_description_paths.size());
        op.create = HasFlag(flags, "O_CREAT");
        op.truncate = HasFlag(flags, "O_TRUNC");
        op.synchronous = HasFlag(flags, "O_SYNC") || HasFlag(flags, "O_DSYNC");
        (*process.descriptors)[static_cast<int>(call.result)] = {op.description, HasFlag(flags, "O_CLOEXEC")};
        m_operations.push_back(std::move(op));
    }

    void Close(const Syscall& call, Process& process)
    {
        process.descriptors->erase(Number(call.args.at(0)));
    }

    void CloseRange(const Syscall& call, Process& process)
    {
        const std::string& flags = call.args.at(2);
        if (HasFlag(flags, "CLOSE_RANGE_UNSHARE"))
            process.descriptors = std::make_shared<DescriptorTable>(*process.descriptors);
        DescriptorTable& table = *process.descriptors;
        const long long last = std::stoll(call.args[1], nullptr, 0);
        for (auto it = table.lower_bound(Number(call.args[0])); it != table.end() && it->first <= last;) {
            if (HasFlag(flags, "CLOSE_RANGE_CLOEXEC"))
                (it++)->second.close_on_exec = true;
            else
                it = table.erase(it);
        }
    }

    void Duplicate(const Syscall& call, Process& process)
    {
        const bool fcntl = call.name == "fcntl";
        bool close_on_exec = call.name == "dup3" && HasFlag(call.args.at(2), "O_CLOEXEC");
        if (fcntl) {
            const std::string& command = call.args.at(1);
            if (command == "F_SETFD") {
                SetCloseOnExec(process, Number(call.args.at(0)), HasFlag(call.args.at(2), "FD_CLOEXEC"));
                return;
            }
            if (command != "F_DUPFD" && command != "F_DUPFD_CLOEXEC")
                return;
            close_on_exec = command == "F_DUPFD_CLOEXEC";
        }
        DescriptorTable& table = *process.descriptors;
        const int old_fd = Number(call.args.at(0));
        const int new_fd = static_cast<int>(call.result);
        const auto old = table.find(old_fd);
        if (old == table.end())
            table.erase(new_fd);
        else if (old_fd != new_fd)
            table[new_fd] = {old->second.description, close_on_exec};
    }

    static void SetCloseOnExec(Process& process, int fd, bool close_on_exec)
    {
        const auto it = process.descriptors->find(fd);
        if (it != process.descriptors->end())
            it->second.close_on_exec = close_on_exec;
    }

    // write(fd, ...), sendfile(out, ...), copy_file_range(in, off, out, ...),
    // splice(in, off, out, ...): the descriptor written to.
    void Write(const Syscall& call, Process& process)
    {
        const bool third = call.name == "copy_file_range" || call.name == "splice";
        if (call.result > 0)
            DescriptorOperation(call, process, Kind::Write, call.args.at(third ? 2 : 0), call.result);
    }

    void Fsync(const Syscall& call, Process& process)
    {
        DescriptorOperation(call, process, Kind::Fsync, call.args.at(0), 0);
    }

    void Sync(const Syscall& call, Process&)
    {
        m_operations.push_back(Operation(call, Kind::Sync, ""));
    }

    // rename(a, b), renameat(d, a, d, b) and renameat2, link and linkat.
    void Rebind(const Syscall& call, Process& process)
    {
        const bool at = call.name == "renameat" || call.name == "renameat2" || call.name == "linkat";
        const Kind kind = call.name.rfind("rename", 0) == 0 ? Kind::Rename : Kind::Link;
        FileOperation op = Operation(call, kind, Path(process, at ? call.args.at(0) : "AT_FDCWD", call.args.at(at)));
        op.target = Path(process, at ? call.args.at(2) : "AT_FDCWD", call.args.at(at ? 3 : 1));
        m_operations.push_back(std::move(op));
    }

    void Unlink(const Syscall& call, Process& process)
    {
        const bool at = call.name == "unlinkat";
        if (at && HasFlag(call.args.at(2), "AT_REMOVEDIR"))
            return;
        m_operations.push_back(
            Operation(call, Kind::Unlink, Path(process, at ? call.args.at(0) : "AT_FDCWD", call.args.at(at))));
    }

    void ChangeDirectory(const Syscall& call, Process& process)
    {
        *process.directory = call.name == "fchdir" ? DescriptionPath(process, Number(call.args.at(0)))
                                                   : Path(process, "AT_FDCWD", call.args.at(0));
    }

    void Clone(const Syscall& call, Process& parent)
    {
        const std::string flags = CloneFlags(call);
        Process child = parent;
        if (!HasFlag(flags, "CLONE_FILES"))
            child.descriptors = std::make_shared<DescriptorTable>(*parent.descriptors);
        if (!HasFlag(flags, "CLONE_FS"))
            child.directory = std::make_shared<std::string>(*parent.directory);
        m_processes[static_cast<pid_t>(call.result)] = std::move(child);
    }

    void Execute(const Syscall& call, Process& process)
    {
        const std::string program = Unquote(call.args.at(call.name == "execveat"));
        process.program = program.substr(program.rfind('/') + 1);
        auto table = std::make_shared<DescriptorTable>();
        for (const auto& [fd, descriptor] : *process.descriptors) {
            if (!descriptor.close_on_exec)
                table->emplace(fd, descriptor);
        }
        process.descriptors = std::move(table);
    }

    void DescriptorOperation(const Syscall& call, Process& process, Kind kind, const std::string& fd_text,
                             long long bytes)
    {
        const auto it = process.descriptors->find(Number(fd_text));
        if (it == process.descriptors->end())
            return;
        FileOperation op = Operation(call, kind, m_description_paths[it->second.description - 1]);
        op.description = it->second.description;
        op.bytes = static_cast<uint64_t>(bytes);
        m_operations.push_back(std::move(op));
    }

    std::string DescriptionPath(const Process& process, int fd) const
    {
        const auto it = process.descriptors->find(fd);
        if (it == process.descriptors->end())
            throw std::runtime_error("trace: a path relative to descriptor " + std::to_string(fd)
                                     + ", which the trace never opened");
        return m_description_paths[it->second.description - 1];
    }

    std::string Path(const Process& process, const std::string& directory_fd, const std::string& path_argument) const
    {
        const std::string path = Unquote(path_argument);
        if (path.rfind('/', 0) == 0)
            return Normalize(path);
        const std::string base =
            directory_fd == "AT_FDCWD" ? *process.directory : DescriptionPath(process, Number(directory_fd));
        return Normalize(base + "/" + path);
    }

    FileOperation Operation(const Syscall& call, Kind kind, std::string path) const
    {
        FileOperation op;
        op.kind = kind;
        op.process = m_processes.at(call.pid).program + "[" + std::to_string(call.pid) + "]";
        op.syscall = call.name;
        op.path = std::move(path);
        return op;
    }

    std::map<pid_t, Process> m_processes;
    std::vector<std::string> m_description_paths;
    std::vector<FileOperation> m_operations;
};

const std::map<std::string, Resolver::Handler, std::less<>> Resolver::kHandlers = {
    {"open", &Resolver::Open},         {"openat", &Resolver::Open},
    {"creat", &Resolver::Open},        {"close", &Resolver::Close},
    {"close_range", &Resolver::CloseRange},
    {"dup", &Resolver::Duplicate},     {"dup2", &Resolver::Duplicate},
    {"dup3", &Resolver::Duplicate},    {"fcntl", &Resolver::Duplicate},
    {"write", &Resolver::Write},       {"writev", &Resolver::Write},
    {"pwrite64", &Resolver::Write},    {"pwritev", &Resolver::Write},
    {"pwritev2", &Resolver::Write},    {"sendfile", &Resolver::Write},
    {"copy_file_range", &Resolver::Write}, {"splice", &Resolver::Write},
    {"fsync", &Resolver::Fsync},       {"fdatasync", &Resolver::Fsync},
    {"sync", &Resolver::Sync},         {"syncfs", &Resolver::Sync},
    {"rename", &Resolver::Rebind},     {"renameat", &Resolver::Rebind},
    {"renameat2", &Resolver::Rebind},  {"link", &Resolver::Rebind},
    {"linkat", &Resolver::Rebind},     {"unlink", &Resolver::Unlink},
    {"unlinkat", &Resolver::Unlink},   {"chdir", &Resolver::ChangeDirectory},
    {"fchdir", &Resolver::ChangeDirectory},
    {"clone", &Resolver::Clone},       {"clone3", &Resolver::Clone},
    {"fork", &Resolver::Clone},        {"vfork", &Resolver::Clone},
    {"execve", &Resolver::Execute},    {"execveat", &Resolver::Execute},
};

} // namespace

std::vector<FileOperation> ResolveFileOperations(const std::vector<Syscall>& calls)
{
    return Resolver().Resolve(calls);
}

std::string TracedSyscalls()
{
    std::string names;
    for (const auto& handler : Resolver::kHandlers)
        names += (names.empty() ? "" : ",") + handler.first;
    return names;
}

} // namespace sim
