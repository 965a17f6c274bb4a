#include "scenario_directory.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "app/paths.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

void RequireKind(const fs::path& path, fs::file_type kind)
{
    if (fs::symlink_status(path).type() != kind)
        throw ScenarioError(path.string(), kind == fs::file_type::directory ? "not a directory" : "not a plain file");
}

std::string ReadWhole(const fs::path& path)
{
    RequireKind(path, fs::file_type::regular);
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw ScenarioError(path.string(), std::strerror(errno));
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

// Decimal, or hexadecimal after "0x", up to 32 bits: what a person writes and
// what the capture script prints.
uint32_t ParseNumber(const std::string& token, const fs::path& path)
{
    const bool hex = token.size() > 2 && token[0] == '0' && (token[1] == 'x' || token[1] == 'X');
    const std::string digits = hex ? token.substr(2) : token;
    const char* allowed = hex ? "0123456789abcdefABCDEF" : "0123456789";
    const bool number = !digits.empty() && digits.size() <= 10 && digits.find_first_not_of(allowed) == std::string::npos;
    const unsigned long long value = number ? std::stoull(digits, nullptr, hex ? 16 : 10) : 0;
    if (!number || value > UINT32_MAX)
        throw ScenarioError(path.string(), "'" + token + "' is no 32-bit number (decimal or 0x hexadecimal)");
    return static_cast<uint32_t>(value);
}

// The white-space separated numbers of a file; count 0 takes any number of them.
std::vector<uint32_t> ReadNumbers(const fs::path& path, size_t count)
{
    std::istringstream text(ReadWhole(path));
    std::vector<uint32_t> numbers;
    for (std::string token; text >> token;)
        numbers.push_back(ParseNumber(token, path));
    if (count != 0 && numbers.size() != count)
        throw ScenarioError(path.string(), "holds " + std::to_string(numbers.size()) + " numbers, not "
                                               + std::to_string(count));
    return numbers;
}

void LoadRoot(const fs::path& directory, Scenario& scenario)
{
    RequireKind(directory, fs::file_type::directory);
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(directory)) {
        const fs::file_status status = entry.symlink_status();
        const std::string inside = "/" + entry.path().lexically_relative(directory).generic_string();
        const auto mode = static_cast<mode_t>(status.permissions() & fs::perms::mask);
        if (status.type() == fs::file_type::directory)
            scenario.root[inside] = RootEntry{true, "", mode};
        else if (status.type() == fs::file_type::regular)
            scenario.root[inside] = RootEntry{false, ReadWhole(entry.path()), mode};
        else
            throw ScenarioError(entry.path().string(), "neither a plain file nor a directory");
    }
}

FlashGeometry LoadGeometry(const fs::path& path)
{
    const std::vector<uint32_t> sizes = ReadNumbers(path, 3);
    const FlashGeometry geometry{sizes[0], sizes[1], sizes[2]};
    if (geometry.write_size == 0 || geometry.erase_size == 0 || geometry.erase_size % geometry.write_size != 0)
        throw ScenarioError(path.string(), "the erase size must be a whole number of pages");
    return geometry;
}

// A partition's name goes into /proc/mtd between double quotes, read there
// as one word.
std::string PartitionName(const fs::path& path, const std::string& suffix)
{
    const std::string file = path.filename().string();
    const std::string name = file.substr(0, file.size() - suffix.size());
    if (name.empty() || name.find_first_of(" \t\n\"") != std::string::npos)
        throw ScenarioError(path.string(), "a partition name must be one word without quotes");
    return name;
}

bool EndsWith(const std::string& text, const std::string& end)
{
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

void LoadFlash(const fs::path& directory, Scenario& scenario)
{
    RequireKind(directory, fs::file_type::directory);
    std::map<std::string, fs::path> needing_image; // partition name: a file that describes it
    for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
        const fs::path& path = entry.path();
        const std::string file = path.filename().string();
        RequireKind(path, fs::file_type::regular);
        if (file == "geometry") {
            scenario.geometry = LoadGeometry(path);
        } else if (EndsWith(file, ".img")) {
            scenario.flash[PartitionName(path, ".img")].image = ReadWhole(path);
        } else if (EndsWith(file, ".bad")) {
            const std::string name = PartitionName(path, ".bad");
            scenario.flash[name].bad_blocks = ReadNumbers(path, 0);
            needing_image[name] = path;
        } else if (EndsWith(file, ".ro")) {
            const std::string name = PartitionName(path, ".ro");
            scenario.flash[name].write_refusal = EACCES;
            needing_image[name] = path;
        } else {
            throw ScenarioError(path.string(), "not a partition's NAME.img, NAME.bad or NAME.ro, nor the geometry");
        }
    }
    for (const auto& [name, path] : needing_image) {
        if (!fs::exists(directory / (name + ".img")))
            throw ScenarioError(path.string(), "no " + name + ".img beside it");
    }
}

std::string FirstLine(const std::string& text)
{
    return text.substr(0, text.find('\n'));
}

} // namespace

Scenario LoadScenario(const std::string& directory)
{
    const fs::path base(directory);
    if (!fs::is_directory(base))
        throw ScenarioError(directory, "no such scenario directory");
    Scenario scenario;
    for (const fs::directory_entry& entry : fs::directory_iterator(base)) {
        const fs::path& path = entry.path();
        const std::string name = path.filename().string();
        if (name == "root") {
            LoadRoot(path, scenario);
        } else if (name == "flash") {
            LoadFlash(path, scenario);
        } else if (name == "description") {
            scenario.description = FirstLine(ReadWhole(path));
        } else if (name == "reset-causes") {
            scenario.reset_causes = ReadNumbers(path, 1).front();
        } else if (name == "output-size" || name == "staging-size") {
            const uint32_t bytes = ReadNumbers(path, 1).front();
            // A tmpfs of size 0 has no limit at all.
            if (bytes == 0)
                throw ScenarioError(path.string(), "a file system of 0 bytes");
            const fs::path small = name == "output-size" ? fs::path(paths::kOutputDirectory)
                                                         : fs::path(paths::kStagingDirectory).parent_path();
            scenario.file_system_sizes[small.string()] = bytes;
        } else if (name == "soc") {
            const std::vector<uint32_t> registers = ReadNumbers(path, 2);
            scenario.soc = {registers[0], registers[1]};
        } else {
            throw ScenarioError(path.string(), "not part of a scenario (description, root/, reset-causes, flash/, soc,"
                                               " output-size, staging-size)");
        }
    }
    return scenario;
}

std::vector<ScenarioListing> ListScenarios(const std::string& built_in)
{
    std::vector<ScenarioListing> listings;
    for (const fs::directory_entry& entry : fs::directory_iterator(built_in)) {
        const fs::path description = entry.path() / "description";
        listings.push_back({entry.path().filename().string(),
                            fs::exists(description) ? FirstLine(ReadWhole(description)) : ""});
    }
    std::sort(listings.begin(), listings.end(),
              [](const ScenarioListing& a, const ScenarioListing& b) { return a.name < b.name; });
    return listings;
}

std::string ScenarioPath(const std::string& argument, const std::string& built_in)
{
    const fs::path named = fs::path(built_in) / argument;
    if (argument.find('/') == std::string::npos && fs::is_directory(named))
        return named.string();
    if (fs::is_directory(argument))
        return argument;
    throw ScenarioError(argument, "neither a built-in scenario (see --list) nor a directory");
}

} // namespace sim
