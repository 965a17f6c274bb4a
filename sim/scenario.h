#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "device_root.h"
#include "hardware.h"

namespace sim {

// A file or a directory that a scenario puts into the device as it stands.
struct RootEntry {
    bool directory = false;
    std::string content;
    mode_t mode = 0644;
};

// A raw NAND partition: the image as a flashing tool writes it, laid over the
// good blocks in order.
struct FlashImage {
    std::string image;
    std::vector<uint32_t> bad_blocks = {};
    // The error a read-write open fails with, 0 for none: EACCES when the
    // partition lacks the kernel's writeable flag, EPERM from a cgroup's
    // device policy, EROFS from a read-only mount of the device nodes.
    int write_refusal = 0;
};

// The SoC's identification registers, as /dev/mem shows them.
struct SocRegisters {
    uint32_t digprog = 0;
    uint32_t sbmr2 = 0;
};

// Everything a device shows the collector at boot: what its previous run left
// and who it is. Built in code, or loaded from a scenario directory (see
// sim/README.md), which holds the same parts as plain files.
struct Scenario {
    std::string description; // one line
    // Paths inside the device ("/proc/boardid"), written in path order, so
    // that a directory comes before what it holds.
    std::map<std::string, RootEntry> root;
    // The boot loader's reset-cause word; none: the property is missing.
    std::optional<uint32_t> reset_causes;
    FlashGeometry geometry;
    // By partition name; /proc/mtd lists them in this order.
    std::map<std::string, FlashImage> flash;
    SocRegisters soc;
    // Directories of the device that are file systems of their own, of this
    // many bytes (a tmpfs, whole pages): a data partition with little left, a
    // staging area in little RAM. By path inside the device.
    std::map<std::string, uint32_t> file_system_sizes;

    void SetFile(const std::string& inside, std::string content, mode_t mode = 0644)
    {
        root[inside] = RootEntry{false, std::move(content), mode};
    }
};

// Makes the device show the scenario: its small file systems, then its files
// (those inside such a file system take from its space), the reset-cause property,
// the partitions in /proc/mtd (replacing any listed before) and the SoC's
// registers in /dev/mem.
void Apply(const Scenario& scenario, DeviceRoot& device);

} // namespace sim
