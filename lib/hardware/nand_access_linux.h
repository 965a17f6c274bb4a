#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/nand_access.h"
#include "platform/unique_fd.h"

// A raw NAND partition behind one of the kernel's MTD character devices.
class LinuxNandAccess : public NandAccess {
protected:
    LinuxNandAccess() = default;
    ~LinuxNandAccess() = default;
};

// Readers never ask for write access: a device maker's write protection, a
// read-only file system or a sandbox's device policy refuses it, each with an
// error of its own.
enum class NandMode { kRead, kReadWrite };

class LinuxNandAccessImpl final : public LinuxNandAccess {
public:
    // Opens the device and reads its geometry. The usable size is the smaller
    // of the driver's and size; it must be a whole number of erase blocks.
    LinuxNandAccessImpl(const std::string& device, size_t size, NandMode mode);
    ~LinuxNandAccessImpl() = default;

    void ReadSpareArea(uint32_t offset, void* buffer, size_t length) override;
    void WriteSpareArea(uint32_t offset, const void* buffer, size_t length) override;
    uint32_t EraseSize() const override { return m_erase_size; }
    uint32_t OobSize() const override { return m_oob_size; }
    uint32_t WriteSize() const override { return m_write_size; }
    uint32_t TotalSize() const override { return m_total_size; }
    bool IsBadBlock(uint32_t offset) override;
    bool IsSpareAreaErased(uint32_t offset) override;
    void MarkBadBlock(uint32_t offset) override;
    void EraseBlock(uint32_t offset) override;
    size_t Read(uint32_t offset, void* buffer, size_t length) override;
    void Write(uint32_t offset, const void* buffer, size_t length) override;

private:
    void Seek(uint32_t offset, const char* operation);
    void TransferSpareArea(unsigned long request, uint32_t offset, void* buffer, size_t length);

    tessel::UniqueFd m_fd;
    uint32_t m_erase_size = 0;
    uint32_t m_write_size = 0;
    uint32_t m_oob_size = 0;
    uint32_t m_total_size = 0;
};

// Finds the partition by name in "/proc/mtd" and opens its device.
NandAccess::Pointer OpenNandPartition(const std::string& name, NandMode mode);
