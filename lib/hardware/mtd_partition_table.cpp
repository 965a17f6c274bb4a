#include "hardware/mtd_partition_table.h"

#include <cerrno>
#include <memory>
#include <stdexcept>

#include <fmt/format.h>

#include "platform/errno_exception.h"

namespace {

constexpr const char* kTable = "/proc/mtd";

// The kernel quotes names ("flash0.nvram"); hand-made tables may not.
std::string Unquote(const char* token)
{
    std::string name(token);
    if (!name.empty() && name.front() == '"')
        name.erase(0, 1);
    if (!name.empty() && name.back() == '"')
        name.pop_back();
    return name;
}

} // namespace

NandPartitionLocation FindNandPartition(std::FILE* table, const std::string& name)
{
    // Header: "dev:    size   erasesize  name".
    if (std::fscanf(table, "%*s %*s %*s %*s") == EOF)
        throw std::runtime_error("Failed to read /proc/mtd");

    // The widths keep every token inside its buffer: a longer token is split
    // rather than written past the end.
    char device[64];
    unsigned size = 0;
    unsigned erase_size = 0;
    char quoted_name[256];
    for (;;) {
        if (std::fscanf(table, "%63s %x %x %255s", device, &size, &erase_size, quoted_name) != 4)
            throw std::runtime_error(fmt::format("Failed to find NAND partition named '{}'", name));
        if (Unquote(quoted_name) == name)
            break;
    }

    std::string token(device);
    if (!token.empty() && token.back() == ':')
        token.pop_back();
    return {"/dev/" + token, size, name};
}

NandPartitionLocation FindNandPartition(const std::string& name)
{
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> table(std::fopen(kTable, "re"), std::fclose);
    if (!table)
        throw ErrnoException(errno, nullptr);
    return FindNandPartition(table.get(), name);
}
