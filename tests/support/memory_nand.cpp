#include "memory_nand.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace test_support {

MemoryNand::MemoryNand(uint32_t erase_size, uint32_t blocks, uint32_t write_size, uint32_t oob_size)
    : m_erase_size(erase_size),
      m_write_size(write_size),
      m_oob_size(oob_size),
      m_data(size_t{erase_size} * blocks, 0xff),
      m_oob(m_data.size() / write_size + 1, std::vector<uint8_t>(oob_size, 0xff))
{
}

void MemoryNand::Fill(uint32_t offset, const std::string& bytes)
{
    if (offset + bytes.size() > m_data.size())
        throw std::out_of_range("MemoryNand::Fill beyond the partition");
    std::memcpy(m_data.data() + offset, bytes.data(), bytes.size());
}

void MemoryNand::WriteSkippingBadBlocks(const std::string& bytes)
{
    size_t done = 0;
    for (uint32_t block = 0; done < bytes.size(); ++block) {
        if (size_t{block} * m_erase_size >= m_data.size())
            throw std::out_of_range("MemoryNand: image larger than the good blocks");
        if (m_bad.count(block))
            continue;
        const size_t chunk = std::min<size_t>(m_erase_size, bytes.size() - done);
        Fill(block * m_erase_size, bytes.substr(done, chunk));
        done += chunk;
    }
}

void MemoryNand::ReadSpareArea(uint32_t offset, void* buffer, size_t length)
{
    m_last_spare_length = std::min<size_t>(length, m_oob_size);
    std::memcpy(buffer, m_oob.at(offset / m_write_size).data(), m_last_spare_length);
}

void MemoryNand::WriteSpareArea(uint32_t offset, const void* buffer, size_t length)
{
    m_last_spare_length = std::min<size_t>(length, m_oob_size);
    std::memcpy(m_oob.at(offset / m_write_size).data(), buffer, m_last_spare_length);
}

bool MemoryNand::IsBadBlock(uint32_t offset)
{
    return m_bad.count(offset / m_erase_size) != 0;
}

bool MemoryNand::IsSpareAreaErased(uint32_t offset)
{
    std::vector<uint8_t> spare(m_oob_size);
    ReadSpareArea(offset, spare.data(), spare.size());
    return std::all_of(spare.begin(), spare.end(), [](uint8_t byte) { return byte == 0xff; });
}

void MemoryNand::MarkBadBlock(uint32_t offset)
{
    m_bad.insert(offset / m_erase_size);
}

void MemoryNand::EraseBlock(uint32_t offset)
{
    const uint32_t start = offset - offset % m_erase_size;
    std::fill_n(m_data.begin() + start, m_erase_size, 0xff);
    m_erased.push_back(start);
}

size_t MemoryNand::Read(uint32_t offset, void* buffer, size_t length)
{
    if (offset > m_data.size())
        return 0;
    const size_t n = std::min<size_t>(length, m_data.size() - offset);
    std::memcpy(buffer, m_data.data() + offset, n);
    m_bytes_read += n;
    m_largest_read = std::max<uint64_t>(m_largest_read, n);
    return n;
}

void MemoryNand::Write(uint32_t offset, const void* buffer, size_t length)
{
    if (offset + length > m_data.size())
        throw std::out_of_range("MemoryNand::Write beyond the partition");
    std::memcpy(m_data.data() + offset, buffer, length);
}

} // namespace test_support
