#include "hardware/bootloader_environment.h"

#include <cstdio>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>

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
    // Left uninitialised: only what the read filled is parsed, and clearing
    // it first would be one more pass over the block at every boot.
    const std::unique_ptr<uint8_t[]> block(new uint8_t[erase_size]);
    const size_t length = nand->Read(static_cast<uint32_t>(offset), block.get(), erase_size);
    return parse(block.get(), length);
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
