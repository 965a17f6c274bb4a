#pragma once

#include <cstdint>
#include <string>

// The SoC's name from its digital-program register (DIGPROG: type in bits
// 16-23, major revision in 8-15, minor in 0-7) and its boot mode register 2
// (SBMR2: bit 6 marks the ULZ variant). Empty for a part other than the ULZ;
// std::runtime_error "Unexpected silicon type" for any type but 0x65.
std::string DecodeSilicon(uint32_t digprog, uint32_t sbmr2);

// Reads both registers through physical memory and decodes them.
std::string IdentifySilicon();
