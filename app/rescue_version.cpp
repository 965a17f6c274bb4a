#include "app/rescue_version.h"

#include <cstdio>
#include <exception>

#include "app/fit_reader.h"
#include "platform/print.h"

namespace {

constexpr const char* kRescuePartition = "flash0.rescue";

} // namespace

std::string ReadRescueVersion(const PartitionOpener& open_partition)
{
    try {
        return ReadFitRootProperty(open_partition(kRescuePartition), "version");
    } catch (const std::exception& e) {
        tessel::print(stderr, "Unable to read rescue kernel version: {}\n", e.what());
    } catch (...) {
        tessel::print(stderr, "Unable to read rescue kernel version: Unknown exception\n");
    }
    return {};
}
