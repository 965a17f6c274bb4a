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
    // A board without a radio may still carry a wireless address in its
    // manufacturing record, or a USB dongle may bring a "wlan0": neither is
    // the device's own wireless.
    if (config.HasWireless())
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
    const auto open_for_reading = [](const std::string& name) { return OpenNandPartition(name, NandMode::kRead); };
    AddDeviceFacts(info, ReadDeviceIdentity(), open_for_reading, std::time(nullptr), "");
}
