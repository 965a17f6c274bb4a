#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

// Where a raw NAND partition lives, as the kernel's "/proc/mtd" lists it.
struct NandPartitionLocation {
    std::string device_path; // "/dev/mtd3"
    uint32_t size = 0;
    std::string name;
};

// Looks the partition up by its exact name in an open copy of the table.
// Throws std::runtime_error when the table is empty or has no such name.
NandPartitionLocation FindNandPartition(std::FILE* table, const std::string& name);

// The same over "/proc/mtd"; an unreadable table throws ErrnoException.
NandPartitionLocation FindNandPartition(const std::string& name);
