// Copies what the hardware configuration knows into the facts of a dump, and
// opens the rescue partition through the real NAND factory.

#include <ctime>

#include "app/device_facts.h"
#include "hardware/hardware_config.h"
#include "hardware/nand_access_linux.h"
#include "platform/singleton.h"

namespace {

DeviceIdentity ReadDeviceIdentity()
{
    const HardwareConfig& config = *tessel::Singleton<HardwareConfig>::GetInstance();
    DeviceIdentity identity;
    identity.model = config.GetOemModel().empty() ? config.GetFamily() : config.GetOemModel();
    identity.wired_mac = config.GetWiredMacAddress();
    // No hardware flag is known to mean "has wireless"; the configuration
    // gives an address only where the boot loader records one or a wireless
    // interface exists, which is the same question answered by the hardware.
    identity.wireless_mac = config.GetWirelessMacAddress();
    identity.serial = config.GetSerialNumber();
    identity.hardware_revision = config.GetHardwareRevision();
    identity.board_id = config.GetBoardId();
    identity.board_name = config.GetFamily();
    identity.soc = config.GetSoc();
    identity.boot_version = config.GetBootloaderVersion();
    return identity;
}

} // namespace

void AddDeviceFacts(CrashInfo& info)
{
    AddDeviceFacts(info, ReadDeviceIdentity(), OpenNandPartition, std::time(nullptr), "");
}
