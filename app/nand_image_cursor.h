#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/maybe_compressed_nand_reader.h"
#include "platform/nand_access.h"

// Random-access reads of an image on a NAND partition, served from the
// partition's forward-only (and possibly compressed) stream.
//
// A FIT image puts its strings block after the structure block, and the
// structure block holds the kernel itself, so a walker that wants the strings
// first must pass over nearly the whole image and then come back to the root
// node near the start. Loading the image would cost its size in memory;
// reading it twice would double the time, decompression included. Instead the
// first bytes of the image are kept as they stream past: the header and the
// root node's properties live there in every real image, so coming back costs
// nothing and the image is read once, up to the last byte asked for and no
// further. A read behind the stream outside that kept head (a root node of
// unusual size) starts the stream again from the beginning, which stays
// correct at the price of a second pass.
class NandImageCursor {
public:
    explicit NandImageCursor(NandAccess::Pointer nand);

    // Exactly length bytes at offset, or throws.
    void Read(uint64_t offset, size_t length, void* buffer);

    // How much of the image's start is kept.
    static constexpr size_t kHeadSize = 4096;

private:
    void Restart();
    void SkipTo(uint64_t offset);
    void Take(char* buffer, size_t length);

    NandAccess::Pointer m_nand;
    std::unique_ptr<MaybeCompressedNandReader> m_stream;
    uint64_t m_position = 0;
    std::vector<char> m_head;
};
