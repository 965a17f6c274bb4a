#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/nand_access.h"

// Reads exactly length bytes of the image at offset into buffer, or throws.
using FitReadFunction = std::function<void(uint64_t offset, size_t length, void* buffer)>;

// The value of the root node's string property name, without its NUL; empty
// when the root has no such property before its first subnode. Throws
// std::runtime_error when the image is not a FIT image or is damaged on the
// way to the answer.
//
// The header, the strings block and the structure block are read through
// read, in that order; nothing outside them is asked for, and nothing past the
// end of the structure block. A property whose name offset lies outside the
// strings block has no name: it never matches and is passed over like any
// other property, since damage to a property we do not want should not cost
// the one we do.
std::string FindFitRootProperty(const FitReadFunction& read, const std::string& name);

// The same over a NAND partition that holds the image, plain or
// gzip-compressed, read in a single forward pass.
std::string ReadFitRootProperty(std::shared_ptr<NandAccess> const& nand, std::string const& name);
