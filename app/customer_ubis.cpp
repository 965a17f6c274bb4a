#include "app/customer_ubis.h"

#include <algorithm>
#include <cstdlib>
#include <optional>

#include "app/fall_back.h"
#include "app/trimmed_file.h"

namespace {

// A UBI device holds at most 128 volumes. A larger count is garbage, and
// walking it would only print a failure for every volume that is not there.
constexpr unsigned long kMaxVolumes = 128;

std::optional<unsigned long> ReadVolumeCount(const std::string& ubi_device)
{
    const auto read = [&] {
        return std::strtoul(ReadTrimmedFile(ubi_device + "/volumes_count").c_str(), nullptr, 0);
    };
    return CallOrFallBack(std::optional<unsigned long>(), "Failed to read UBI list: {}\n",
                          "Failed to read UBI list: Unknown exception\n", read);
}

std::optional<std::string> ReadVolumeName(const std::string& ubi_device, unsigned long index)
{
    return CallOrFallBack(std::optional<std::string>(), "Failed to read UBI name: {}\n",
                          "Failed to read UBI name: Unknown exception\n",
                          [&] { return ReadTrimmedFile(fmt::format("{}/ubi0_{}/name", ubi_device, index)); });
}

} // namespace

std::string CustomerUbiVolumes(const std::string& ubi_device)
{
    const unsigned long count = std::min(ReadVolumeCount(ubi_device).value_or(0), kMaxVolumes);
    std::string joined;
    for (unsigned long index = 0; index < count; ++index) {
        const std::optional<std::string> name = ReadVolumeName(ubi_device, index);
        if (!name || name->compare(0, 5, "cust_") != 0)
            continue;
        if (!joined.empty())
            joined += ':';
        joined += *name;
    }
    return joined;
}
