#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

// Properties of the kernel's exported flattened device tree, addressed by
// their path below the tree's root ("lumora/bootloader/imx-reset-cause").
namespace DeviceTree {

class PropertyNotFound : public std::runtime_error {
public:
    PropertyNotFound() : std::runtime_error("device tree property not found") {}
};

// The kernel's export of the tree.
constexpr const char* kRoot = "/proc/device-tree/";

// A single cell: exactly four big-endian bytes.
uint32_t ReadU32Property(const std::string& relative_path, const std::string& root = kRoot);

// A NUL-terminated text; the terminator (and anything after it) is dropped.
std::string ReadStringProperty(const std::string& relative_path, const std::string& root = kRoot);

} // namespace DeviceTree
