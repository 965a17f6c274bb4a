#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "platform/nand_access.h"

// The boot loader's variables (LM_SERIAL, LM_HWFLAGS, ...), name to value.
struct BootloaderEnvironment {
    std::map<std::string, std::string> variables;
    // Free text that travels with the variables in the wider platform; this
    // program's reader leaves it empty and reports failures on stderr instead.
    std::string comment;
};

// Turns one erase block's bytes into variables; throws on a malformed image.
using EnvironmentParser = std::function<BootloaderEnvironment(const uint8_t* data, size_t size)>;

// Parses the first erase block of the partition that is not marked bad.
// Throws when every block is bad, or whatever the parser and the device throw.
BootloaderEnvironment ReadFirstGoodBlock(const NandAccess::Pointer& nand, const EnvironmentParser& parse);

// A copy of the process-wide environment, read from "flash0.nvram" on the
// first call. An unreadable or corrupt environment is reported once and
// then stays empty for the rest of the process.
BootloaderEnvironment GetBootloaderEnvironment();
