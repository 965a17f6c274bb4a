#include "hardware.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>
#include <string>
#include <utility>

#include <fmt/format.h>

namespace sim {

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

MtdPartition FlashedPartition(const std::string& name, const std::string& image, const FlashGeometry& geometry,
                              std::vector<uint32_t> bad_blocks)
{
    std::sort(bad_blocks.begin(), bad_blocks.end());
    bad_blocks.erase(std::unique(bad_blocks.begin(), bad_blocks.end()), bad_blocks.end());
    const auto is_bad = [&](uint64_t block) { return std::binary_search(bad_blocks.begin(), bad_blocks.end(), block); };

    // The blocks the image takes, then as many as the bad blocks reach; an
    // empty image leaves one erased block.
    uint64_t blocks = 0;
    for (size_t placed = 0; placed < image.size(); ++blocks) {
        if (!is_bad(blocks))
            placed += geometry.erase_size;
    }
    blocks = std::max<uint64_t>(blocks, 1);
    if (!bad_blocks.empty())
        blocks = std::max<uint64_t>(blocks, uint64_t{bad_blocks.back()} + 1);
    if (blocks * geometry.erase_size > UINT32_MAX)
        throw std::length_error("partition " + name + " would be 4 GiB or larger");

    std::string content(blocks * geometry.erase_size, '\xff');
    size_t written = 0;
    for (uint64_t block = 0; written < image.size(); ++block) {
        if (is_bad(block))
            continue;
        const size_t chunk = std::min<size_t>(geometry.erase_size, image.size() - written);
        content.replace(block * geometry.erase_size, chunk, image, written, chunk);
        written += chunk;
    }
    return {name, std::move(content), geometry.erase_size, geometry.write_size, geometry.oob_size,
            std::move(bad_blocks)};
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
    if (partition.write_refusal != 0)
        device.WriteFile(path + ".ro", std::to_string(partition.write_refusal));
    else
        device.Remove(path + ".ro");

    table += fmt::format("mtd{}: {:08x} {:08x} \"{}\"\n", index, partition.content.size(), partition.erase_size,
                         partition.name);
    device.WriteFile(kPartitionTable, table, 0444);
    device.LoadMtdDriver();
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

} // namespace sim
