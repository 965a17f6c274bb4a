#include "hardware.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>
#include <string>
#include <utility>

#include <fmt/format.h>
#include <fmt/ranges.h>

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

    // Block by block over the good ones; an empty image leaves one erased
    // block, and the partition reaches as far as its bad blocks do.
    const uint32_t block_size = geometry.erase_size;
    std::string content;
    for (size_t written = 0; written < image.size();) {
        std::string block(block_size, '\xff');
        if (!is_bad(content.size() / block_size)) {
            const size_t chunk = std::min<size_t>(block_size, image.size() - written);
            block.replace(0, chunk, image, written, chunk);
            written += chunk;
        }
        content += block;
    }
    const uint64_t blocks = std::max<uint64_t>(
        {content.size() / block_size, 1, bad_blocks.empty() ? 0 : uint64_t{bad_blocks.back()} + 1});
    if (blocks * block_size > UINT32_MAX)
        throw std::length_error("partition " + name + " would be 4 GiB or larger");
    content.resize(blocks * block_size, '\xff');
    return {name, std::move(content), geometry, std::move(bad_blocks)};
}

void AddMtdPartition(DeviceRoot& device, const MtdPartition& partition)
{
    std::string table = device.Exists(kPartitionTable) ? device.ReadFile(kPartitionTable)
                                                       : "dev:    size   erasesize  name\n";
    const auto index = std::count(table.begin(), table.end(), '\n') - 1;
    const std::string path = fmt::format("/dev/mtd{}", index);

    const FlashGeometry& sizes = partition.geometry;
    device.WriteFile(path, partition.content, 0600);
    device.WriteFile(path + ".geometry", fmt::format("{} {} {} {}\n", sizes.erase_size, sizes.write_size,
                                                     sizes.oob_size, fmt::join(partition.bad_blocks, " ")));
    if (partition.write_refusal != 0)
        device.WriteFile(path + ".ro", std::to_string(partition.write_refusal));
    else
        device.Remove(path + ".ro");

    table += fmt::format("mtd{}: {:08x} {:08x} \"{}\"\n", index, partition.content.size(), sizes.erase_size,
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
