#include "memory_nand.h"

#include <algorithm>
#include <cstring>

namespace test_support {

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

size_t MemoryNand::Read(uint32_t offset, void* buffer, size_t length)
{
    if (offset > m_data.size())
        return 0;
    const size_t n = std::min<size_t>(length, m_data.size() - offset);
    std::memcpy(buffer, m_data.data() + offset, n);
    m_bytes_read += n;
    return n;
}

} // namespace test_support
