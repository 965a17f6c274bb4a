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
    case Kind::Write:
        Write(op);
        break;
    case Kind::Rename:
    case Kind::Link: {
        const InodeId file = Existing(op.path);
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
    if (op.description != 0)
        return m_descriptions.at(op.description).file;
    return History(op.path).back();
}

InodeId StorageModel::NewFile(ContentVersion first)
{
    m_inodes.push_back({{first}, 0});
    return m_inodes.size() - 1;
}

void StorageModel::Bind(const std::string& path, Binding file)
{
    NameHistory& history = m_names.try_emplace(path, NameHistory{std::nullopt}).first->second;
    if (history.back() != file)
        history.push_back(file);
}

void StorageModel::Open(const FileOperation& op)
{
    Binding file = History(op.path).back();
    if (!file && op.create) {
        file = NewFile({});
        Bind(op.path, file);
    } else if (!file && m_names.count(op.path) == 0) {
        file = Existing(op.path);
    } else if (file && op.truncate && m_inodes[*file].versions.back().written > 0) {
        m_inodes[*file].versions.push_back({});
    }
    m_descriptions[op.description] = {op.path, file, op.synchronous};
}

void StorageModel::Write(const FileOperation& op)
{
    const Binding target = m_descriptions.at(op.description).file;
    if (!target)
        throw std::logic_error("a write through a descriptor of " + op.path + ", which names no file");
    Inode& file = m_inodes[*target];
    file.versions.push_back({file.versions.back().written + op.bytes, false});
    if (m_descriptions.at(op.description).synchronous)
        file.durable = file.Last();
}

// The file a path names now; a path the model has not seen names a file from
// before the run (outside the listed directory: a log, a device).
InodeId StorageModel::Existing(const std::string& path)
{
    Binding file = History(path).back();
    if (!file) {
        file = NewFile({0, true});
        m_names[path] = {file};
    }
    return *file;
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
