#include "hardware.h"

#include <algorithm>
#include <stdexcept>
#include <utility>
#include <fstream>

#include <fmt/format.h>

namespace sandbox {

namespace {

constexpr const char* kPartitionTable = "/proc/mtd";

// The window the collector maps: 0x38000 bytes from 0x020C8000.
constexpr uint32_t kPhysicalMemorySize = 0x020C8000 + 0x38000;
constexpr uint32_t kDigprogAddress = 0x020C8260;
constexpr uint32_t kSbmr2Address = 0x020D801C;

void PutWord(std::fstream& memory, uint32_t address, uint32_t value)
{
    const char bytes[4] = {static_cast<char>(value), static_cast<char>(value >> 8), static_cast<char>(value >> 16),
                           static_cast<char>(value >> 24)};
    memory.seekp(address);
    memory.write(bytes, sizeof bytes);
}

} // namespace

MtdPartition FlashedPartition(const std::string& name, const std::string& image, uint32_t size,
                              std::vector<uint32_t> bad_blocks)
{
    MtdPartition partition{name, std::string(size, '\xff')};
    partition.bad_blocks = std::move(bad_blocks);
    size_t written = 0;
    for (uint32_t block = 0; written < image.size(); ++block) {
        const size_t offset = size_t{block} * partition.erase_size;
        if (offset >= size)
            throw std::length_error("image larger than the good blocks of " + name);
        if (std::find(partition.bad_blocks.begin(), partition.bad_blocks.end(), block) != partition.bad_blocks.end())
            continue;
        const size_t chunk = std::min<size_t>(partition.erase_size, image.size() - written);
        partition.content.replace(offset, chunk, image, written, chunk);
        written += chunk;
    }
    return partition;
}

void AddMtdPartition(DeviceRoot& device, const MtdPartition& partition)
{
    std::string table = device.Exists(kPartitionTable) ? device.ReadFile(kPartitionTable)
                                                       : "dev:    size   erasesize  name\n";
    const auto index = std::count(table.begin(), table.end(), '\n') - 1;
    const std::string path = fmt::format("/dev/mtd{}", index);

    std::string geometry = fmt::format("{} {} {}", partition.erase_size, partition.write_size, partition.oob_size);
    for (uint32_t block : partition.bad_blocks)
        geometry += fmt::format(" {}", block);
    device.WriteFile(path, partition.content, 0600);
    device.WriteFile(path + ".geometry", geometry + "\n");

    table += fmt::format("mtd{}: {:08x} {:08x} \"{}\"\n", index, partition.content.size(), partition.erase_size,
                         partition.name);
    device.WriteFile(kPartitionTable, table, 0444);
    device.Preload(MTD_PRELOAD_LIBRARY);
}

std::string MtdDevice(const DeviceRoot& device, const std::string& name)
{
    const std::string table = device.ReadFile(kPartitionTable);
    const size_t quoted = table.find(fmt::format(" \"{}\"\n", name));
    if (quoted == std::string::npos)
        throw std::invalid_argument("no partition " + name);
    const size_t line = table.rfind('\n', quoted) + 1;
    return "/dev/" + table.substr(line, table.find(':', line) - line);
}

void SetSiliconRegisters(const DeviceRoot& device, uint32_t digprog, uint32_t sbmr2)
{
    device.WriteFile("/dev/mem", "", 0600);
    std::fstream memory(device.Path("/dev/mem"), std::ios::in | std::ios::out | std::ios::binary);
    // Sparse: only the two registers take space.
    PutWord(memory, kPhysicalMemorySize - 4, 0);
    PutWord(memory, kDigprogAddress, digprog);
    PutWord(memory, kSbmr2Address, sbmr2);
}

} // namespace sandbox
