#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

// One raw NAND partition with erase-block access and visible bad blocks.
// Offsets are byte offsets within the partition; erase, bad-block and
// spare-area operations address the block or page holding that offset.
// Readers that must skip bad blocks step through the partition in erase-size
// steps and ask IsBadBlock for each.
class NandAccess {
public:
    // Owners hold the concrete object through this pointer, which also
    // destroys it; the interface itself is never deleted directly.
    using Pointer = std::shared_ptr<NandAccess>;

    // Spare-area (OOB) transfers never pass more than OobSize() bytes.
    virtual void ReadSpareArea(uint32_t offset, void* buffer, size_t length) = 0;
    virtual void WriteSpareArea(uint32_t offset, const void* buffer, size_t length) = 0;

    virtual uint32_t EraseSize() const = 0;
    virtual uint32_t OobSize() const = 0;
    virtual uint32_t WriteSize() const = 0;
    virtual uint32_t TotalSize() const = 0;

    virtual bool IsBadBlock(uint32_t offset) = 0;
    // True when every spare-area byte of the page reads 0xff.
    virtual bool IsSpareAreaErased(uint32_t offset) = 0;
    virtual void MarkBadBlock(uint32_t offset) = 0;
    virtual void EraseBlock(uint32_t offset) = 0;

    // Erases every good block of [start, start + length); bad blocks are left
    // alone. An empty range, or one whose end does not fit 32 bits, does nothing.
    virtual void EraseGoodBlocks(uint32_t start, uint32_t length);
    virtual void EraseAll();

    // Reads up to length bytes at offset; returns fewer only at the end of the
    // device.
    virtual size_t Read(uint32_t offset, void* buffer, size_t length) = 0;
    virtual void Write(uint32_t offset, const void* buffer, size_t length) = 0;
    // Kept for writers that address the device by its block-level name.
    virtual void WriteBlocks(uint32_t offset, const void* buffer, size_t length);

protected:
    NandAccess() = default;
    ~NandAccess() = default;
    NandAccess(const NandAccess&) = delete;
    NandAccess& operator=(const NandAccess&) = delete;
};
