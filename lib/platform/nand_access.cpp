#include "platform/nand_access.h"

void NandAccess::EraseGoodBlocks(uint32_t start, uint32_t length)
{
    const uint64_t end = uint64_t{start} + length;
    if (length == 0 || end > UINT32_MAX)
        return;
    for (uint64_t offset = start; offset < end; offset += EraseSize()) {
        if (!IsBadBlock(static_cast<uint32_t>(offset)))
            EraseBlock(static_cast<uint32_t>(offset));
    }
}

void NandAccess::EraseAll()
{
    EraseGoodBlocks(0, TotalSize());
}

void NandAccess::WriteBlocks(uint32_t offset, const void* buffer, size_t length)
{
    Write(offset, buffer, length);
}
