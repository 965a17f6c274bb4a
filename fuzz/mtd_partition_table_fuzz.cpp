// "/proc/mtd" is the kernel's, but names come from the device tree or the
// command line; the scan must hold on any text.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <stdexcept>

#include "hardware/mtd_partition_table.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> table(fmemopen(const_cast<uint8_t*>(data), size, "r"),
                                                           std::fclose);
    if (!table)
        return 0;
    try {
        FindNandPartition(table.get(), "flash0.nvram");
    } catch (const std::runtime_error&) {
    }
    return 0;
}
