#include "hardware/nand_access_linux.h"

#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "hardware/mtd_partition_table.h"
#include "platform/assert_report.h"
#include "platform/errno_exception.h"
#include "platform/posix_helpers.h"

namespace {

// Synchronous writes: a write that returned is on the flash, so a power cut
// right after updating the environment cannot lose it. Device makers
// write-protect partitions (the "ro" flag of an mtdparts entry clears
// MTD_WRITEABLE) and the driver then refuses to open them for writing;
// reading is all such a partition offers, and the driver itself refuses
// anything else on that descriptor.
int OpenMtdDevice(const std::string& device, NandMode mode)
{
    if (mode == NandMode::kRead)
        return ::open(device.c_str(), O_RDONLY | O_CLOEXEC);
    const int fd = ::open(device.c_str(), O_RDWR | O_CLOEXEC | O_SYNC);
    if (fd >= 0 || (errno != EACCES && errno != EROFS))
        return fd;
    return ::open(device.c_str(), O_RDONLY | O_CLOEXEC);
}

} // namespace

LinuxNandAccessImpl::LinuxNandAccessImpl(const std::string& device, size_t size, NandMode mode)
    : m_fd(OpenMtdDevice(device, mode))
{
    if (!m_fd.valid())
        throw ErrnoException(errno, device);

    mtd_info_user info{};
    if (::ioctl(m_fd.get(), MEMGETINFO, &info) < 0)
        throw ErrnoException(errno, nullptr);
    m_erase_size = info.erasesize;
    m_write_size = info.writesize;
    m_oob_size = info.oobsize;
    m_total_size = static_cast<uint32_t>(std::min<uint64_t>(info.size, size));

    // No NAND driver reports a zero erase size; one that did would make every
    // block walk of the callers spin in place.
    TESSEL_ASSERT(m_erase_size != 0);
    TESSEL_ASSERT(m_total_size % m_erase_size == 0);
}

void LinuxNandAccessImpl::ReadSpareArea(uint32_t offset, void* buffer, size_t length)
{
    TransferSpareArea(MEMREADOOB, offset, buffer, length);
}

void LinuxNandAccessImpl::WriteSpareArea(uint32_t offset, const void* buffer, size_t length)
{
    // The driver only reads from the buffer of a spare-area write.
    TransferSpareArea(MEMWRITEOOB, offset, const_cast<void*>(buffer), length);
}

// One page's spare area at most: longer requests would spill into the spare
// areas of the following pages.
void LinuxNandAccessImpl::TransferSpareArea(unsigned long request, uint32_t offset, void* buffer, size_t length)
{
    mtd_oob_buf oob{};
    oob.start = offset;
    oob.length = static_cast<uint32_t>(std::min<size_t>(length, m_oob_size));
    oob.ptr = static_cast<unsigned char*>(buffer);
    if (::ioctl(m_fd.get(), request, &oob) < 0)
        throw ErrnoException(errno, nullptr);
}

bool LinuxNandAccessImpl::IsBadBlock(uint32_t offset)
{
    loff_t position = offset;
    const int result = ::ioctl(m_fd.get(), MEMGETBADBLOCK, &position);
    if (result < 0)
        throw ErrnoException(errno, nullptr);
    return result != 0;
}

bool LinuxNandAccessImpl::IsSpareAreaErased(uint32_t offset)
{
    std::vector<uint8_t> spare(m_oob_size);
    ReadSpareArea(offset, spare.data(), spare.size());
    return std::all_of(spare.begin(), spare.end(), [](uint8_t byte) { return byte == 0xff; });
}

void LinuxNandAccessImpl::MarkBadBlock(uint32_t offset)
{
    loff_t position = offset;
    if (::ioctl(m_fd.get(), MEMSETBADBLOCK, &position) < 0)
        throw ErrnoException(errno, nullptr);
}

void LinuxNandAccessImpl::EraseBlock(uint32_t offset)
{
    erase_info_user erase{};
    erase.start = offset;
    erase.length = m_erase_size;
    if (::ioctl(m_fd.get(), MEMERASE, &erase) < 0)
        throw ErrnoException(errno, nullptr);
}

size_t LinuxNandAccessImpl::Read(uint32_t offset, void* buffer, size_t length)
{
    Seek(offset, "NandBlockAccess::Read");
    return read_all_throw(m_fd.get(), buffer, length);
}

void LinuxNandAccessImpl::Write(uint32_t offset, const void* buffer, size_t length)
{
    Seek(offset, "NandBlockAccess::Write");
    write_all_throw(m_fd.get(), buffer, length);
}

// The 64-bit seek: offsets up to 4 GiB do not fit the target's 32-bit off_t.
void LinuxNandAccessImpl::Seek(uint32_t offset, const char* operation)
{
    const off64_t position = ::lseek64(m_fd.get(), offset, SEEK_SET);
    if (position < 0)
        throw ErrnoException(errno, operation);
    if (position != offset)
        throw std::runtime_error(std::string(operation) + " seek failure");
}

NandAccess::Pointer OpenNandPartition(const std::string& name, NandMode mode)
{
    const NandPartitionLocation location = FindNandPartition(name);
    return std::make_shared<LinuxNandAccessImpl>(location.device_path, location.size, mode);
}
