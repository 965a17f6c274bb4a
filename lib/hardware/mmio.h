#pragma once

#include <cstdint>

#include "platform/unique_fd.h"

// A window of memory-mapped device registers.
class MmioBase {
public:
    virtual ~MmioBase() = default;
    // The 32-bit register at a byte offset into the window. Throws
    // std::out_of_range when the offset is not inside the window.
    virtual uint32_t Read32(uint32_t offset) const = 0;
};

// Registers reached through physical memory ("/dev/mem"), mapped for the
// object's lifetime.
class Mmio final : public MmioBase {
public:
    Mmio(uint32_t physical_offset, uint32_t length);
    ~Mmio() override;
    Mmio(const Mmio&) = delete;
    Mmio& operator=(const Mmio&) = delete;

    uint32_t Read32(uint32_t offset) const override;

private:
    void* m_base = nullptr;
    uint32_t m_length;
    tessel::UniqueFd m_fd;
};
