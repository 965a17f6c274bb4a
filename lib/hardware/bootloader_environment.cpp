#include "hardware/bootloader_environment.h"

#include <cstdio>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <vector>

#include "hardware/nand_access_linux.h"
#include "hardware/uboot_environment.h"
#include "platform/print.h"

namespace {

constexpr const char* kPartition = "flash0.nvram";

// Nothing when the partition cannot be read or holds no valid image.
std::optional<BootloaderEnvironment> LoadEnvironment()
{
    try {
        return ReadFirstGoodBlock(OpenNandPartition(kPartition, NandMode::kRead), ParseUbootEnvironment);
    } catch (...) {
        return std::nullopt;
    }
}

} // namespace

BootloaderEnvironment ReadFirstGoodBlock(const NandAccess::Pointer& nand, const EnvironmentParser& parse)
{
    const uint32_t erase_size = nand->EraseSize();
    uint64_t offset = 0;
    while (offset < nand->TotalSize() && nand->IsBadBlock(static_cast<uint32_t>(offset)))
        offset += erase_size;
    if (offset >= nand->TotalSize())
        throw std::runtime_error("All BOLT environment NAND blocks are bad");

    // The image is the whole erase block: its checksum covers the padding too.
    std::vector<uint8_t> block(erase_size);
    const size_t length = nand->Read(static_cast<uint32_t>(offset), block.data(), block.size());
    return parse(block.data(), length);
}

BootloaderEnvironment GetBootloaderEnvironment()
{
    static std::mutex mutex;
    static bool loaded = false;
    static BootloaderEnvironment environment;

    std::lock_guard<std::mutex> lock(mutex);
    if (!loaded) {
        const std::optional<BootloaderEnvironment> read = LoadEnvironment();
        environment = read.value_or(BootloaderEnvironment{});
        // Cached before the warning: it is given once per process, not once
        // per question, even when printing it throws.
        loaded = true;
        if (!read)
            tessel::print(stderr, "BOOTLOADER ENVIRONMENT CORRUPT. PLEASE RUN MANUFACTURING TEST\n");
    }
    return environment;
}
