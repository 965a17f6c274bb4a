#pragma once

#include <cstddef>
#include <cstdint>
#include <ios>

#include <boost/iostreams/categories.hpp>
#include <boost/iostreams/filtering_stream.hpp>
#include <boost/iostreams/positioning.hpp>

#include "platform/nand_access.h"

// The content of a NAND partition as one forward-only input stream, read from
// offset 0 over the good blocks. Images written gzip-compressed (recognised by
// the gzip signature at the start) come out decompressed; anything else comes
// out as it is on the flash.
//
// Failures surface as exceptions from the reading call: "Short read from
// MaybeCompressedNandReader" when the partition ends before the data asked
// for, "gzip error" when the compressed data is corrupt, and whatever the
// partition access throws.
class MaybeCompressedNandReader : public boost::iostreams::filtering_istream {
public:
    // The partition as a device of the stream: sequential, skipping bad erase
    // blocks the way the flashing tool skipped them when it wrote the image.
    class NandSource {
    public:
        using char_type = char;
        using category = boost::iostreams::seekable_device_tag;

        explicit NandSource(NandAccess::Pointer nand);

        // Never crosses an erase block, so every block is asked about before
        // any of its bytes are used. Returns -1 after the last good block.
        std::streamsize read(char* buffer, std::streamsize count);
        // The partition is read-only here, and the stream only moves forward:
        // a call to either is a programming error.
        std::streamsize write(const char* buffer, std::streamsize count);
        std::streampos seek(boost::iostreams::stream_offset offset, std::ios_base::seekdir direction);

    private:
        void SkipBadBlocks();

        NandAccess::Pointer m_nand;
        uint64_t m_offset = 0;
    };

    explicit MaybeCompressedNandReader(const NandAccess::Pointer& nand);

    // Exactly length bytes, or the short-read error.
    void ReadExactly(void* buffer, size_t length);
    // Passes over count bytes without keeping them, or the short-read error.
    void Skip(uint64_t count);
};
