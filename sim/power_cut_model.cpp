#include "power_cut_model.h"

#include <stdexcept>

namespace sim {

using Kind = FileOperation::Kind;

std::string ParentDirectory(std::string_view path)
{
    const size_t slash = path.rfind('/');
    return slash == 0 || slash == std::string_view::npos ? "/" : std::string(path.substr(0, slash));
}

StorageModel::StorageModel(const std::vector<PreexistingFile>& files)
{
    for (const PreexistingFile& file : files)
        m_names[file.path] = {NewFile({file.size, true})};
}

void StorageModel::Apply(const FileOperation& op)
{
    switch (op.kind) {
    case Kind::Open:
        Open(op);
        break;
    case Kind::Write: {
        Inode& file = m_inodes[Existing(op)];
        file.versions.push_back({file.versions.back().written + op.length, false});
        break;
    }
    case Kind::Truncate:
        Resize(Existing(op), op.length);
        break;
    case Kind::Rename:
    case Kind::Link: {
        const InodeId file = Existing(op);
        if (op.kind == Kind::Rename && op.path != op.target)
            Bind(op.path, std::nullopt);
        Bind(op.target, file);
        break;
    }
    case Kind::Unlink:
        Bind(op.path, std::nullopt);
        break;
    case Kind::Fsync:
        Fsync(op);
        break;
    case Kind::Sync:
        Sync();
        break;
    }
}

const NameHistory& StorageModel::History(const std::string& path) const
{
    static const NameHistory kAbsent{std::nullopt};
    const auto it = m_names.find(path);
    return it == m_names.end() ? kAbsent : it->second;
}

std::vector<std::string> StorageModel::NamesIn(std::string_view directory) const
{
    std::vector<std::string> names;
    for (const auto& entry : m_names) {
        if (ParentDirectory(entry.first) == directory)
            names.push_back(entry.first);
    }
    return names;
}

std::optional<InodeId> StorageModel::FileOf(const FileOperation& op) const
{
    if (!op.unlinked)
        return History(op.path).back();
    const auto it = m_unbound.find(op.path);
    return it == m_unbound.end() ? std::nullopt : Binding(it->second);
}

InodeId StorageModel::NewFile(ContentVersion first)
{
    m_inodes.push_back({{first}, 0});
    return m_inodes.size() - 1;
}

void StorageModel::Bind(const std::string& path, Binding file)
{
    NameHistory& history = m_names.try_emplace(path, NameHistory{std::nullopt}).first->second;
    if (history.back() == file)
        return;
    if (history.back())
        m_unbound[path] = *history.back();
    history.push_back(file);
}

void StorageModel::Open(const FileOperation& op)
{
    if (!History(op.path).back() && op.create)
        Bind(op.path, NewFile({}));
    else if (op.truncate)
        Resize(Existing(op), 0);
}

void StorageModel::Resize(InodeId id, uint64_t size)
{
    Inode& file = m_inodes[id];
    if (file.versions.back().written != size)
        file.versions.push_back({size, false});
}

// The file an operation acts on; a path the model has not seen names a file
// from before the run (outside the listed directory: a log, a device).
InodeId StorageModel::Existing(const FileOperation& op)
{
    if (const Binding file = FileOf(op))
        return *file;
    if (!op.unlinked && m_names.count(op.path) != 0)
        throw std::logic_error(op.syscall + " of " + op.path + ", which names no file");
    const InodeId file = NewFile({0, true});
    if (!op.unlinked)
        m_names[op.path] = {file};
    return file;
}

void StorageModel::Fsync(const FileOperation& op)
{
    if (const Binding file = FileOf(op))
        m_inodes[*file].durable = m_inodes[*file].Last();
    ForgetHistory(op.path);
}

void StorageModel::Sync()
{
    for (Inode& file : m_inodes)
        file.durable = file.Last();
    for (auto& entry : m_names)
        entry.second = {entry.second.back()};
}

// The directory reached storage: its names are now bound only as they are.
void StorageModel::ForgetHistory(const std::string& directory)
{
    for (auto& entry : m_names) {
        if (ParentDirectory(entry.first) == directory)
            entry.second = {entry.second.back()};
    }
}

} // namespace sim
