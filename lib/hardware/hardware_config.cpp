#include "hardware/hardware_config.h"

#include <sys/stat.h>

#include <cstdio>
#include <optional>

#include "hardware/mac_address.h"
#include "hardware/numeric_text.h"
#include "hardware/soc_identification.h"
#include "platform/errno_exception.h"
#include "platform/posix_helpers.h"
#include "platform/print.h"

namespace {

using Variables = std::map<std::string, std::string>;

// Only this version of the manufacturing record is understood; any other
// leaves every record variable unused.
constexpr const char* kRecordFormat = "1";

constexpr uint64_t kAllFlags = UINT64_MAX;
constexpr uint64_t kNorvaFlags = uint64_t{1} << 38;
constexpr uint64_t kQx610Flags = uint64_t{1} << 42 | uint64_t{1} << 43;

std::optional<std::string> Find(const Variables& variables, const std::string& name)
{
    const auto it = variables.find(name);
    if (it == variables.end())
        return std::nullopt;
    return it->second;
}

bool RecordIsValid(const Variables& variables)
{
    return Find(variables, "LM_FORMAT") == kRecordFormat;
}

} // namespace

HardwareConfig::HardwareConfig()
    : HardwareConfig(Sources{GetBootloaderEnvironment, IdentifySilicon, "/proc/boardid", "/sys/class/net/"})
{
}

HardwareConfig::HardwareConfig(Sources sources)
    : m_sources(std::move(sources)), m_board(ReadBoardId(m_sources.board_id_path))
{
    if (m_board.soc.empty())
        m_board.soc = m_sources.identify_silicon();
    TakeManufacturingRecord();
}

void HardwareConfig::TakeManufacturingRecord()
{
    const Variables variables = m_sources.environment().variables;
    if (!RecordIsValid(variables)) {
        tessel::print(stderr, "Manufacturing record format '{}' not supported; hardware flags cleared\n",
                      Find(variables, "LM_FORMAT").value_or(""));
        return;
    }

    // A record without flags predates them: such boards are taken to have
    // every feature.
    const auto flags = Find(variables, "LM_HWFLAGS");
    m_hardware_flags = flags ? ParseUnsigned64(*flags) : kAllFlags;
    m_oem_id = Find(variables, "LM_OEM_ID").value_or("");
    m_oem_model = Find(variables, "LM_OEM_MODEL").value_or("");

    if (m_hardware_flags == 0)
        tessel::print(stderr, "Hardware configuration bitfield is zero. Please reprogram SRB\n");

    // Customer variants whose records were programmed without their flags.
    if (m_oem_id == "Norva")
        m_hardware_flags |= kNorvaFlags;
    if (m_oem_model == "QX610") {
        const auto revision = Find(variables, "LM_HWREV");
        if (revision && (ParseUnsigned32(*revision) == 3 || ParseUnsigned32(*revision) == 4))
            m_hardware_flags |= kQx610Flags;
    }
}

std::string HardwareConfig::RecordValue(const std::string& name) const
{
    const Variables variables = m_sources.environment().variables;
    if (!RecordIsValid(variables))
        return {};
    return Find(variables, name).value_or("");
}

std::string HardwareConfig::GetPlatformName() const
{
    return "corvan";
}

std::string HardwareConfig::GetSerialNumber() const
{
    return RecordValue("LM_SERIAL");
}

std::string HardwareConfig::GetHardwareRevision() const
{
    const Variables variables = m_sources.environment().variables;
    const auto revision = Find(variables, "LM_HWREV");
    if (!RecordIsValid(variables) || !revision)
        return {};
    return std::to_string(ParseUnsigned32(*revision));
}

std::string HardwareConfig::GetWiredMacAddress() const
{
    return NormaliseMacAddress(RecordValue("LM_ETH0_HWADDR"));
}

std::string HardwareConfig::GetWirelessMacAddress() const
{
    const std::string recorded = NormaliseMacAddress(RecordValue("LM_WLAN0_HWADDR"));
    if (!recorded.empty() || !InterfaceExists("wlan0"))
        return recorded;
    // The kernel reports the address with a line feed; an unreadable one is
    // as good as none.
    try {
        std::string address = ReadWholeFile(m_sources.network_interfaces + "wlan0/address");
        if (!address.empty() && address.back() == '\n')
            address.pop_back();
        return NormaliseMacAddress(address);
    } catch (const ErrnoException&) {
        return {};
    }
}

// A name with a slash would reach outside the interfaces' directory.
bool HardwareConfig::InterfaceExists(const std::string& name) const
{
    struct stat status {};
    return name.find('/') == std::string::npos
           && ::stat((m_sources.network_interfaces + name).c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}
