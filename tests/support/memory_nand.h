#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/nand_access.h"

namespace test_support {

// A NAND partition in memory for a collector that only reads flash: erased
// blocks read 0xff, bad blocks are a set of block indexes, and the bytes read
// are counted so that tests can tell how much of the partition a reader
// touched. Anything that would change the flash is refused.
class MemoryNand : public NandAccess {
public:
    MemoryNand(uint32_t erase_size, uint32_t blocks) : m_erase_size(erase_size), m_data(size_t{erase_size} * blocks, 0xff) {}
    // Tests derive variants that misbehave; those are destroyed through this.
    virtual ~MemoryNand() = default;

    static auto Make(uint32_t erase_size, uint32_t blocks) { return std::make_shared<MemoryNand>(erase_size, blocks); }

    // Test set-up, bypassing bad-block checks.
    void Fill(uint32_t offset, const std::string& bytes);
    void SetBad(uint32_t block) { m_bad.insert(block); }
    // Lays bytes over the good blocks from offset 0 on, skipping bad ones, as
    // a flashing tool does.
    void WriteSkippingBadBlocks(const std::string& bytes);
    uint64_t BytesRead() const { return m_bytes_read; }

    uint32_t EraseSize() const override { return m_erase_size; }
    uint32_t OobSize() const override { return 64; }
    uint32_t WriteSize() const override { return 2048; }
    uint32_t TotalSize() const override { return static_cast<uint32_t>(m_data.size()); }
    bool IsBadBlock(uint32_t offset) override { return m_bad.count(offset / m_erase_size) != 0; }
    size_t Read(uint32_t offset, void* buffer, size_t length) override;

    bool IsSpareAreaErased(uint32_t) override { return true; }
    void ReadSpareArea(uint32_t, void*, size_t) override { Refuse(); }
    void WriteSpareArea(uint32_t, const void*, size_t) override { Refuse(); }
    void MarkBadBlock(uint32_t) override { Refuse(); }
    void EraseBlock(uint32_t) override { Refuse(); }
    void Write(uint32_t, const void*, size_t) override { Refuse(); }

private:
    [[noreturn]] static void Refuse() { throw std::logic_error("MemoryNand: the collector only reads flash"); }

    uint32_t m_erase_size;
    std::vector<uint8_t> m_data;
    std::set<uint32_t> m_bad;
    uint64_t m_bytes_read = 0;
};

} // namespace test_support
