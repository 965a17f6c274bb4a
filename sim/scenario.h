#pragma once

#include <cstddef>
#include <string>

#include "device_root.h"

namespace sandbox {

// Both scenarios have a production player's identity: a board file naming
// its SoC and a boot loader environment in NAND with a manufacturing record.

// A device whose previous run ended normally: power-on reset, no core kept,
// no panic, no dump requested.
void PrepareCleanBoot(DeviceRoot& device);

// A device that was reset by its watchdog after the player asserted: the
// kernel kept a core image and its log.
void PrepareCrashedDevice(DeviceRoot& device);

// What the crashed device's identity files and partitions hold, for tests
// that check the dump against them.
constexpr const char* kRescueVersion = "4.9.337-lumora-rescue-2.3";
constexpr const char* kSystemVersion = "9.0.112";
constexpr const char* kImageName = "signage-player-release";

// Bytes that compress to nothing and parse as nothing, the same on every call
// (so that a failure repeats): what a worn flash or a wild write leaves.
std::string RandomBytes(size_t size);

} // namespace sandbox
