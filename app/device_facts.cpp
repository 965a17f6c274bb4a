#include "app/device_facts.h"

#include <fcntl.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <stdexcept>

#include <fmt/format.h>

#include "app/customer_ubis.h"
#include "app/paths.h"
#include "app/trimmed_file.h"
#include "platform/errno_exception.h"
#include "platform/posix_helpers.h"
#include "platform/print.h"
#include "platform/unique_fd.h"

namespace {

// The product family every dump of this player carries.
constexpr const char* kFamily = "corvan";

// The whole file, line feed included. A system without its version file
// still gets its dump: only the salt may stop the facts.
std::string ReadSystemVersion(const std::string& path)
{
    try {
        return ReadWholeFile(path);
    } catch (const std::exception&) {
        return {};
    }
}

std::optional<std::string> ReadImageName(const std::string& path)
{
    try {
        return ReadTrimmedFile(path);
    } catch (const std::exception& e) {
        tessel::print(stderr, "Failed to read image name: {}\n", e.what());
        return std::nullopt;
    }
}

bool ConsoleWritable(const std::string& path)
{
    // Started from init, the collector may lead a session without a terminal:
    // looking at the console must not make it the controlling terminal.
    tessel::UniqueFd console(::open(path.c_str(), O_WRONLY | O_NOCTTY | O_CLOEXEC));
    return console.valid();
}

// The loader's name is what normalising the version drops ("abc-1.2.3"
// gives 1.2.3); the whole text goes beside it so that nothing is lost.
std::optional<std::string> BootExtra(const std::string& reported, const std::string& normalised)
{
    if (reported.empty() || reported == normalised)
        return std::nullopt;
    return reported;
}

} // namespace

void AddDeviceFacts(CrashInfo& info, const DeviceIdentity& identity, const PartitionOpener& open_partition,
                    std::time_t now, const std::string& root)
{
    info["family"] = kFamily;
    info["model"] = identity.model;
    info["eth_mac"] = identity.wired_mac;
    info["wifi_mac"] = identity.wireless_mac;
    info["serial"] = identity.serial;
    info["hwrev"] = identity.hardware_revision;
    info["board"] = fmt::format("0x{:x}", identity.board_id);
    info["board_name"] = identity.board_name;
    info["soc"] = identity.soc;
    info["run"] = ReadSystemVersion(root + paths::kSystemVersion);
    const std::string boot = NormaliseBootVersion(identity.boot_version);
    info["boot"] = boot;
    info["rescue"] = ReadRescueVersion(open_partition);
    if (const auto extra = BootExtra(identity.boot_version, boot))
        info["boot_extra"] = *extra;
    if (const auto image_name = ReadImageName(root + paths::kImageName))
        info["image_name"] = *image_name;
    if (const auto time = FormatCollectionTime(now))
        info["time"] = *time;
    info["td"] = "0";
    info["console"] = ConsoleWritable(root + paths::kConsole) ? "1" : "0";
    if (const std::string volumes = CustomerUbiVolumes(root + paths::kUbiDevice); !volumes.empty())
        info["customer_ubis"] = volumes;
    info["salt"] = ReadSalt(root + paths::kRandom);
}

std::string NormaliseBootVersion(const std::string& reported)
{
    if (reported.empty()) {
        tessel::print(stderr, "Empty boot version from boot loader. Bad.\n");
        return "0.0.0";
    }
    if (std::isdigit(static_cast<unsigned char>(reported[0])))
        return reported;
    if (const size_t dash = reported.find('-'); dash != std::string::npos)
        return reported.substr(dash + 1);
    tessel::print(stderr, "Boot version in incorrect format: '{}'\n", reported);
    return reported;
}

std::optional<std::string> FormatCollectionTime(std::time_t now)
{
    constexpr std::time_t kClockSetAfter = 1388534400; // 2014-01-01T00:00:00Z
    if (now <= kClockSetAfter)
        return std::nullopt;
    std::tm utc{};
    if (::gmtime_r(&now, &utc) == nullptr) // beyond the calendar's years
        return std::nullopt;
    return fmt::format("{:04}{:02}{:02}T{:02}{:02}{:02}Z", utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday,
                       utc.tm_hour, utc.tm_min, utc.tm_sec);
}

std::string HexEncode(const unsigned char* bytes, size_t length)
{
    constexpr const char* kDigits = "0123456789abcdef";
    std::string hex;
    hex.reserve(length * 2);
    for (size_t i = 0; i < length; ++i) {
        hex += kDigits[bytes[i] >> 4];
        hex += kDigits[bytes[i] & 0xf];
    }
    return hex;
}

std::string ReadSalt(const std::string& random_device)
{
    tessel::UniqueFd random(::open(random_device.c_str(), O_RDONLY | O_CLOEXEC));
    if (!random.valid())
        throw ErrnoException(errno, random_device);
    unsigned char bytes[16];
    if (read_all_throw(random.get(), bytes, sizeof bytes) != sizeof bytes)
        throw std::runtime_error("Short read from " + random_device);
    return HexEncode(bytes, sizeof bytes);
}
