#include "scenario.h"

namespace sim {

void Apply(const Scenario& scenario, DeviceRoot& device)
{
    for (const auto& [inside, bytes] : scenario.file_system_sizes)
        device.MountTmpfs(inside, bytes);
    for (const auto& [inside, entry] : scenario.root) {
        if (entry.directory)
            device.MakeDirectory(inside, entry.mode);
        else
            device.WriteFile(inside, entry.content, entry.mode);
    }
    if (scenario.reset_causes)
        device.SetResetCauses(*scenario.reset_causes);

    device.Remove("/proc/mtd");
    for (const auto& [name, flash] : scenario.flash) {
        MtdPartition partition = FlashedPartition(name, flash.image, scenario.geometry, flash.bad_blocks);
        partition.write_refusal = flash.write_refusal;
        AddMtdPartition(device, partition);
    }
    SetSiliconRegisters(device, scenario.soc.digprog, scenario.soc.sbmr2);
}

} // namespace sim
