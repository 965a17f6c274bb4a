#include "installation.h"

#include <filesystem>

namespace fs = std::filesystem;

namespace sim {

Installation Installation::Under(const std::string& prefix)
{
    return {prefix + "/" SIM_COLLECTOR_PATH, prefix + "/" SIM_MTD_DRIVER_PATH, prefix + "/" SIM_SCENARIOS_PATH};
}

Installation Installation::OfThisProgram()
{
    return Under(fs::read_symlink("/proc/self/exe").parent_path().parent_path().string());
}

} // namespace sim
