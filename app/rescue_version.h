#pragma once

#include <functional>
#include <string>

#include "platform/nand_access.h"

// Opens a raw NAND partition by its name.
using PartitionOpener = std::function<NandAccess::Pointer(const std::string& name)>;

// The version of the rescue kernel kept in its own partition, or empty when it
// cannot be read: every failure is reported on standard error and swallowed,
// since a damaged rescue partition must never cost a dump.
std::string ReadRescueVersion(const PartitionOpener& open_partition);
