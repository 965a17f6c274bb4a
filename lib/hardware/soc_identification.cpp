#include "hardware/soc_identification.h"

#include <stdexcept>

#include <fmt/format.h>

#include "hardware/mmio.h"

namespace {

// One window from the analog block up to the system reset controller.
constexpr uint32_t kWindowBase = 0x020C8000;
constexpr uint32_t kWindowLength = 0x38000;
constexpr uint32_t kDigprogOffset = 0x260;    // anatop DIGPROG, 0x020C8260
constexpr uint32_t kSbmr2Offset = 0x1001C;    // SRC SBMR2, 0x020D801C

constexpr uint32_t kSocTypeUl = 0x65;
constexpr uint32_t kSbmr2UlzVariant = 1u << 6;

} // namespace

std::string DecodeSilicon(uint32_t digprog, uint32_t sbmr2)
{
    if (((digprog >> 16) & 0xff) != kSocTypeUl)
        throw std::runtime_error("Unexpected silicon type");
    if ((sbmr2 & kSbmr2UlzVariant) == 0)
        return {};
    // The register counts major revisions from 0; the parts are marked from 1.
    return fmt::format("i.MX6ULZ rev{}.{}", ((digprog >> 8) & 0xff) + 1, digprog & 0xff);
}

std::string IdentifySilicon()
{
    const Mmio registers(kWindowBase, kWindowLength);
    const uint32_t digprog = registers.Read32(kDigprogOffset);
    const uint32_t sbmr2 = registers.Read32(kSbmr2Offset);
    return DecodeSilicon(digprog, sbmr2);
}
