#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "device_root.h"

namespace sim {

// The NAND chip's geometry, the same for every partition.
struct FlashGeometry {
    uint32_t erase_size = 128 * 1024;
    uint32_t write_size = 2048;
    uint32_t oob_size = 64;
};

// A raw NAND partition of a simulated device, as the kernel's MTD driver
// presents it.
struct MtdPartition {
    std::string name;
    std::string content; // the whole partition; its length is the partition size
    FlashGeometry geometry;
    std::vector<uint32_t> bad_blocks = {};
    // The error a read-write open fails with, 0 for none.
    int write_refusal = 0;
};

// A partition holding image as a flashing tool writes it: block by block,
// stepping over the bad blocks, the rest of its last block erased. It ends
// with the last block that the image or a bad block takes; throws
// std::length_error when that is 4 GiB or more.
MtdPartition FlashedPartition(const std::string& name, const std::string& image, const FlashGeometry& geometry,
                              std::vector<uint32_t> bad_blocks);

// Adds the partition as the next /dev/mtdN with its geometry, lists it in
// "/proc/mtd" and loads the fake MTD driver into the device's programs. The
// driver reads the node's ".geometry" sidecar for the geometry and the bad
// blocks; a ".ro" sidecar holds the error a read-write open fails with.
void AddMtdPartition(DeviceRoot& device, const MtdPartition& partition);

// A physical memory ("/dev/mem") holding the SoC's digital-program register
// and boot mode register 2 at their addresses; everything else reads 0.
void SetSiliconRegisters(const DeviceRoot& device, uint32_t digprog, uint32_t sbmr2);

} // namespace sim
