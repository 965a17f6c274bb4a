// The whole rescue path over a partition: bad-block skipping, the gzip probe,
// decompression and the walk, on whatever bytes the flash holds.

#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>

#include "app/fit_reader.h"
#include "memory_nand.h"

namespace {

constexpr uint32_t kEraseSize = 4096;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1)
        return 0;
    // The first byte chooses a bad block, the rest is the partition content.
    const uint32_t blocks = static_cast<uint32_t>((size - 1) / kEraseSize + 2);
    auto nand = test_support::MemoryNand::Make(kEraseSize, blocks);
    nand->SetBad(data[0] % blocks);
    nand->WriteSkippingBadBlocks(std::string(reinterpret_cast<const char*>(data + 1), size - 1));
    try {
        ReadFitRootProperty(nand, "version");
    } catch (const std::exception&) {
    }
    return 0;
}
