#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "platform/nand_access.h"

namespace test_support {

// A NAND partition in memory: erased blocks read 0xff, bad blocks are a set of
// block indexes, and every transfer is counted so tests can tell how much of
// the partition a reader touched.
class MemoryNand : public NandAccess {
public:
    MemoryNand(uint32_t erase_size, uint32_t blocks, uint32_t write_size = 2048, uint32_t oob_size = 64);
    // Tests derive variants that misbehave; those are destroyed through this.
    virtual ~MemoryNand() = default;

    static std::shared_ptr<MemoryNand> Make(uint32_t erase_size, uint32_t blocks)
    {
        return std::make_shared<MemoryNand>(erase_size, blocks);
    }

    // Test set-up, bypassing bad-block checks.
    void Fill(uint32_t offset, const std::string& bytes);
    void SetBad(uint32_t block) { m_bad.insert(block); }
    // Lays bytes over the good blocks from offset 0 on, skipping bad ones, as
    // a flashing tool does.
    void WriteSkippingBadBlocks(const std::string& bytes);
    const std::vector<uint8_t>& Data() const { return m_data; }
    std::vector<uint8_t>& SpareArea(uint32_t page) { return m_oob.at(page); }

    uint64_t BytesRead() const { return m_bytes_read; }
    uint64_t LargestRead() const { return m_largest_read; }
    const std::vector<uint32_t>& Erased() const { return m_erased; }
    size_t LastSpareLength() const { return m_last_spare_length; }

    void ReadSpareArea(uint32_t offset, void* buffer, size_t length) override;
    void WriteSpareArea(uint32_t offset, const void* buffer, size_t length) override;
    uint32_t EraseSize() const override { return m_erase_size; }
    uint32_t OobSize() const override { return m_oob_size; }
    uint32_t WriteSize() const override { return m_write_size; }
    uint32_t TotalSize() const override { return static_cast<uint32_t>(m_data.size()); }
    bool IsBadBlock(uint32_t offset) override;
    bool IsSpareAreaErased(uint32_t offset) override;
    void MarkBadBlock(uint32_t offset) override;
    void EraseBlock(uint32_t offset) override;
    size_t Read(uint32_t offset, void* buffer, size_t length) override;
    void Write(uint32_t offset, const void* buffer, size_t length) override;

private:
    uint32_t m_erase_size;
    uint32_t m_write_size;
    uint32_t m_oob_size;
    std::vector<uint8_t> m_data;
    std::vector<std::vector<uint8_t>> m_oob;
    std::set<uint32_t> m_bad;
    std::vector<uint32_t> m_erased;
    uint64_t m_bytes_read = 0;
    uint64_t m_largest_read = 0;
    size_t m_last_spare_length = 0;
};

} // namespace test_support
