#include "hardware/mmio.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>
#include <stdexcept>

#include "platform/errno_exception.h"

namespace {

constexpr const char* kPhysicalMemory = "/dev/mem";

// A mapping that reaches past the end of a regular file maps without error,
// and the first register read then kills the process with SIGBUS. The memory
// device itself has no end to check; an image standing in for it does.
bool EndsBefore(int fd, uint64_t end)
{
    struct stat status {};
    return ::fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && static_cast<uint64_t>(status.st_size) < end;
}

} // namespace

Mmio::Mmio(uint32_t physical_offset, uint32_t length)
    : m_length(length), m_fd(::open(kPhysicalMemory, O_RDWR | O_CLOEXEC))
{
    if (!m_fd.valid())
        throw ErrnoException(errno, kPhysicalMemory);
    if (EndsBefore(m_fd.get(), uint64_t{physical_offset} + length))
        throw ErrnoException(ENXIO, kPhysicalMemory);

    // The 64-bit offset: physical addresses above 2 GiB do not fit the
    // target's signed 32-bit off_t.
    void* base = ::mmap64(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED, m_fd.get(), physical_offset);
    if (base == MAP_FAILED)
        throw ErrnoException(errno, nullptr);
    m_base = base;
}

Mmio::~Mmio()
{
    ::munmap(m_base, m_length);
}

// Only the offset is checked: callers read registers at fixed, aligned
// offsets well inside the window.
uint32_t Mmio::Read32(uint32_t offset) const
{
    if (offset >= m_length)
        throw std::out_of_range("MMIO offset out of range");
    // Volatile: every call must reach the device, never a cached value.
    return *reinterpret_cast<const volatile uint32_t*>(static_cast<const uint8_t*>(m_base) + offset);
}
