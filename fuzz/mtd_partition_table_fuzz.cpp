// "/proc/mtd" is the kernel's, but names come from the device tree or the
// command line; the scan must hold on any text.

#include <stdexcept>

#include "fuzz_target.h"
#include "hardware/mtd_partition_table.h"

void FuzzOne(std::string_view input)
{
    try {
        if (const auto table = fuzz::OpenText(input))
            FindNandPartition(table.get(), "flash0.nvram");
    } catch (const std::runtime_error&) {
    }
}
