// The whole rescue path over a partition: bad-block skipping, the gzip probe,
// decompression and the walk, on whatever bytes the flash holds.

#include <exception>
#include <string>

#include "app/fit_reader.h"
#include "fuzz_target.h"
#include "memory_nand.h"

void FuzzOne(std::string_view input)
{
    if (input.empty())
        return;
    // The first byte chooses a bad block, the rest is the partition content.
    constexpr uint32_t kEraseSize = 4096;
    const auto blocks = static_cast<uint32_t>((input.size() - 1) / kEraseSize + 2);
    auto nand = test_support::MemoryNand::Make(kEraseSize, blocks);
    nand->SetBad(static_cast<uint8_t>(input[0]) % blocks);
    nand->WriteSkippingBadBlocks(std::string(input.substr(1)));
    try {
        ReadFitRootProperty(nand, "version");
    } catch (const std::exception&) {
    }
}
