#include "app/rescue_version.h"

#include "app/fall_back.h"
#include "app/fit_reader.h"

namespace {

constexpr const char* kRescuePartition = "flash0.rescue";

} // namespace

std::string ReadRescueVersion(const PartitionOpener& open_partition)
{
    return CallOrFallBack(std::string(), "Unable to read rescue kernel version: {}\n",
                          "Unable to read rescue kernel version: Unknown exception\n",
                          [&] { return ReadFitRootProperty(open_partition(kRescuePartition), "version"); });
}
