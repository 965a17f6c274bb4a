#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "hardware/board_id.h"
#include "hardware/bootloader_environment.h"
#include "platform/singleton.h"

// The player's hardware description, read once at start from the board file,
// the boot loader environment and, when the board file names no SoC, the
// SoC's registers. The owner constructs it first of all; everyone else finds
// it through tessel::Singleton<HardwareConfig>::GetInstance().
class HardwareConfig : public tessel::Singleton<HardwareConfig> {
public:
    // Hardware flag bits, as the factory programs them into LM_HWFLAGS.
    // Consumers test masks; an absent LM_HWFLAGS sets every bit.
    static constexpr uint64_t kFlagWireless = uint64_t{1} << 2; // the board carries a radio

    // Where the facts come from: the device's own by default, anything a
    // test provides otherwise.
    struct Sources {
        std::function<BootloaderEnvironment()> environment;
        std::function<std::string()> identify_silicon;
        std::string board_id_path;
        std::string network_interfaces; // directory of the interfaces, ending in "/"
    };

    HardwareConfig();
    explicit HardwareConfig(Sources sources);

    std::string GetPlatformName() const;
    // From the manufacturing record in the boot loader environment; empty
    // when the record is absent or of an unknown format.
    std::string GetSerialNumber() const;
    std::string GetHardwareRevision() const;
    std::string GetWiredMacAddress() const;
    // Falls back to the address the kernel reports for "wlan0".
    std::string GetWirelessMacAddress() const;

    uint32_t GetBoardId() const { return m_board.board_id; }
    uint64_t GetHardwareFlags() const { return m_hardware_flags; }
    bool HasWireless() const { return (m_hardware_flags & kFlagWireless) != 0; }
    const std::string& GetFamily() const { return m_board.family; }
    const std::string& GetOemId() const { return m_oem_id; }
    const std::string& GetOemModel() const { return m_oem_model; }
    const std::string& GetBootloaderVersion() const { return m_board.bootloader_version; }
    const std::string& GetSoc() const { return m_board.soc; }
    bool HasSecureKeys() const { return m_board.secure_keys; }
    bool HasSecureBoot() const { return m_board.secure_boot; }
    const std::string& GetSecureId() const { return m_board.secure_id; }

private:
    void TakeManufacturingRecord();
    // The value of a manufacturing record variable; empty when the record
    // is not valid or the variable is absent.
    std::string RecordValue(const std::string& name) const;
    bool InterfaceExists(const std::string& name) const;

    Sources m_sources;
    BoardIdentity m_board;
    uint64_t m_hardware_flags = 0;
    std::string m_oem_id;
    std::string m_oem_model;
};
