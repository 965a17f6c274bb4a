#pragma once

#include <cstddef>
#include <string>

#include "device_root.h"

namespace sandbox {

// A device whose previous run ended normally: power-on reset, no core kept,
// no panic, no dump requested.
void PrepareCleanBoot(DeviceRoot& device);

// A device that was reset by its watchdog after the player asserted: the
// kernel kept a core image and its log.
void PrepareCrashedDevice(DeviceRoot& device);

// Bytes that compress to nothing and parse as nothing, the same on every call
// (so that a failure repeats): what a worn flash or a wild write leaves.
std::string RandomBytes(size_t size);

} // namespace sandbox
