#include "power_cut_checker.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "app/paths.h"

namespace sim {

namespace {

using Kind = FileOperation::Kind;

enum class Completeness { Absent, Earlier, Final, Partial };

// One file's content: which file a name is bound to, and which of its versions.
struct Content {
    InodeId file = 0;
    size_t version = 0;
    bool operator==(const Content& other) const { return file == other.file && version == other.version; }
};

// A name whose content must be complete: the archive or the info file.
struct Role {
    std::string name;
    std::string path;
    std::optional<Content> earlier;   // the earlier dump's, if one was waiting
    std::optional<Content> final;     // this run's last, if the run left one
};

// A name's possible bindings, newest first, each once.
std::vector<Binding> Choices(const NameHistory& history)
{
    std::vector<Binding> choices;
    for (auto it = history.rbegin(); it != history.rend(); ++it) {
        if (std::find(choices.begin(), choices.end(), *it) == choices.end())
            choices.push_back(*it);
    }
    return choices;
}

// A file's possible versions: the current one first (the state without a
// power cut), then from the oldest durable one up.
std::vector<size_t> VersionChoices(const Inode& file)
{
    std::vector<size_t> versions = {file.Last()};
    for (size_t v = file.durable; v < file.Last(); ++v)
        versions.push_back(v);
    return versions;
}

bool Good(Completeness archive, Completeness info)
{
    return (archive == Completeness::Earlier && info == Completeness::Earlier)
        || (archive == Completeness::Final && info == Completeness::Final);
}

class Checker {
public:
    Checker(const std::vector<FileOperation>& operations, const std::vector<PreexistingFile>& before)
        : m_operations(operations), m_before(before), m_roles{NamedRole(paths::kArchive), NamedRole(paths::kInfoFile)}
    {
        const StorageModel initial(before);
        StorageModel after(before);
        for (const FileOperation& op : operations)
            after.Apply(op);
        for (Role& role : m_roles) {
            if (const Binding file = initial.History(role.path).back())
                role.earlier = Content{*file, 0};
            if (const Binding file = after.History(role.path).back())
                role.final = Content{*file, after.File(*file).Last()};
        }
    }

    PowerCutReport Check()
    {
        PowerCutReport report;
        StorageModel model(m_before);
        for (const FileOperation& op : m_operations) {
            model.Apply(op);
            if (!Concerns(op, model))
                continue;
            report.handed_off |= op.kind != Kind::Sync && op.kind != Kind::Fsync;
            ++report.cut_points;
            if (std::optional<std::string> example = BadState(model))
                report.violations.push_back({report.cut_points, Describe(op), std::move(*example)});
        }
        if (report.handed_off)
            report.not_durable_at_exit = NotDurable(model);
        return report;
    }

private:
    static Role NamedRole(const std::string& path)
    {
        return {path.substr(path.rfind('/') + 1), path, std::nullopt, std::nullopt};
    }

    bool InDirectory(const std::string& path) const { return ParentDirectory(path) == m_directory; }

    // Whether a name of the directory is, or may on storage be, bound to the file.
    bool Listed(const StorageModel& model, Binding file) const
    {
        if (!file)
            return false;
        for (const std::string& name : model.NamesIn(m_directory)) {
            const NameHistory& history = model.History(name);
            if (std::find(history.begin(), history.end(), file) != history.end())
                return true;
        }
        return false;
    }

    bool Concerns(const FileOperation& op, const StorageModel& model) const
    {
        switch (op.kind) {
        case Kind::Sync:
            return true;
        case Kind::Open:
            return (op.create || op.truncate) && InDirectory(op.path);
        case Kind::Rename:
        case Kind::Link:
            return InDirectory(op.path) || InDirectory(op.target);
        case Kind::Unlink:
            return InDirectory(op.path);
        case Kind::Fsync:
            return op.path == m_directory || Listed(model, model.FileOf(op));
        case Kind::Write:
        case Kind::Truncate:
            return Listed(model, model.FileOf(op));
        }
        return false;
    }

    Completeness Classify(const Role& role, Binding file, size_t version) const
    {
        if (!file)
            return Completeness::Absent;
        const Content content{*file, version};
        if (role.earlier == content)
            return Completeness::Earlier;
        if (role.final == content)
            return Completeness::Final;
        return Completeness::Partial;
    }

    // Per name, the first version of each completeness the file may be in:
    // whether a state is bad depends on nothing else.
    std::vector<std::pair<Completeness, size_t>> Kinds(const StorageModel& model, const Role& role,
                                                       Binding file) const
    {
        if (!file)
            return {{Completeness::Absent, 0}};
        std::vector<std::pair<Completeness, size_t>> kinds;
        for (size_t version : VersionChoices(model.File(*file))) {
            const Completeness kind = Classify(role, file, version);
            if (std::none_of(kinds.begin(), kinds.end(), [&](const auto& k) { return k.first == kind; }))
                kinds.emplace_back(kind, version);
        }
        return kinds;
    }

    std::optional<std::string> BadState(const StorageModel& model) const
    {
        const std::vector<Binding> markers = Choices(model.History(m_marker));
        if (std::none_of(markers.begin(), markers.end(), [](const Binding& b) { return b.has_value(); }))
            return std::nullopt;
        const Role& archive = m_roles[0];
        const Role& info = m_roles[1];
        for (const Binding& a : Choices(model.History(archive.path))) {
            for (const Binding& i : Choices(model.History(info.path))) {
                if (std::optional<std::string> bad = BadPair(model, a, i))
                    return bad;
            }
        }
        return std::nullopt;
    }

    std::optional<std::string> BadPair(const StorageModel& model, Binding a, Binding i) const
    {
        const Role& archive = m_roles[0];
        const Role& info = m_roles[1];
        // One file under both names holds one version for both.
        if (a && a == i) {
            for (size_t version : VersionChoices(model.File(*a))) {
                if (!Good(Classify(archive, a, version), Classify(info, i, version)))
                    return Example(model, a, version, i, version);
            }
            return std::nullopt;
        }
        for (const auto& [archive_kind, archive_version] : Kinds(model, archive, a)) {
            for (const auto& [info_kind, info_version] : Kinds(model, info, i)) {
                if (!Good(archive_kind, info_kind))
                    return Example(model, a, archive_version, i, info_version);
            }
        }
        return std::nullopt;
    }

    std::string Example(const StorageModel& model, Binding a, size_t archive_version, Binding i,
                        size_t info_version) const
    {
        return m_marker_name + " present, " + m_roles[0].name + " "
            + ContentText(model, m_roles[0], a, archive_version) + ", " + m_roles[1].name + " "
            + ContentText(model, m_roles[1], i, info_version);
    }

    std::string ContentText(const StorageModel& model, const Role& role, Binding file, size_t version) const
    {
        switch (Classify(role, file, version)) {
        case Completeness::Absent:
            return "absent";
        case Completeness::Earlier:
            return "the earlier dump's";
        case Completeness::Final:
            return "this run's";
        case Completeness::Partial:
            break;
        }
        const ContentVersion& content = model.File(*file).versions[version];
        if (content.earlier)
            return "as it was before the run";
        if (content.written == 0)
            return "empty";
        return "of " + std::to_string(content.written) + " bytes, not this run's last";
    }

    static std::string Describe(const FileOperation& op)
    {
        std::string text = op.process + " " + op.syscall;
        if (!op.path.empty())
            text += " " + op.path;
        if (!op.target.empty())
            text += " -> " + op.target;
        return text;
    }

    std::vector<std::string> NotDurable(const StorageModel& model) const
    {
        std::vector<std::string> reasons;
        const NameHistory& marker = model.History(m_marker);
        if (!marker.back())
            reasons.push_back(m_marker_name + " absent");
        else if (marker.size() > 1)
            reasons.push_back(m_marker_name + ": directory entry not durable");
        for (const Role& role : m_roles) {
            const NameHistory& history = model.History(role.path);
            if (!history.back()) {
                reasons.push_back(role.name + " absent");
                continue;
            }
            if (history.size() > 1)
                reasons.push_back(role.name + ": directory entry not durable");
            const Inode& file = model.File(*history.back());
            if (file.durable != file.Last())
                reasons.push_back(role.name + ": content not durable");
        }
        return reasons;
    }

    const std::vector<FileOperation>& m_operations;
    const std::vector<PreexistingFile>& m_before;
    const std::string m_directory = paths::kOutputDirectory;
    const std::string m_marker = paths::kReadyMarker;
    const std::string m_marker_name = NamedRole(m_marker).name;
    Role m_roles[2];   // the archive, the info file
};

} // namespace

PowerCutReport CheckPowerCuts(const std::vector<FileOperation>& operations, const std::vector<PreexistingFile>& before)
{
    return Checker(operations, before).Check();
}

} // namespace sim
