#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

#include "app/crash_info.h"
#include "app/rescue_version.h"

// What the hardware configuration knows about the device, copied out so that
// the facts can be assembled (and tried) without the hardware.
struct DeviceIdentity {
    // The model a support engineer sorts dumps by: the OEM model where the
    // device was built for one, else the board family the kernel reports.
    std::string model;
    std::string wired_mac;
    // Only hardware with wireless has an address here.
    std::string wireless_mac;
    std::string serial;
    std::string hardware_revision;
    uint32_t board_id = 0;
    // The board family the kernel reports beside the board id.
    std::string board_name;
    std::string soc;
    // As the boot loader reports it; empty when it reports none.
    std::string boot_version;
};

// Adds the device facts to a dump's record, from the hardware configuration
// singleton and the device's own files and partitions. Throws only when
// "/dev/urandom" cannot be read; the facts added before stay in the record.
void AddDeviceFacts(CrashInfo& info);

// The same from a given identity, with the clock's reading in now. root is put
// before every fixed path: empty on the device, a scratch tree in tests.
void AddDeviceFacts(CrashInfo& info, const DeviceIdentity& identity, const PartitionOpener& open_partition,
                    std::time_t now, const std::string& root);

// The boot loader version as dumps compare it: digits first. A loader name in
// front ("abc-1.2.3") is dropped; anything else odd is reported and kept.
std::string NormaliseBootVersion(const std::string& reported);

// The collection time as a UTC stamp, or nothing while the clock reads as if
// it was never set (not after 2014-01-01T00:00:00Z).
std::optional<std::string> FormatCollectionTime(std::time_t now);

// Lower-case hexadecimal, high nibble first.
std::string HexEncode(const unsigned char* bytes, size_t length);

// Fresh random data for each dump, never a stored value: 16 bytes from the
// given random device, hex-encoded. Throws when it cannot give all 16.
std::string ReadSalt(const std::string& random_device);
