#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// Rescue kernel partition images, FIT images (flattened device trees), for
// the simulated device and for the unit tests that read them.
namespace sim {

// Writes a flattened tree token by token, so that a test can make a
// well-formed image as easily as a precisely broken one. The image is laid out
// as the image tools lay it out: header, empty memory reservation map,
// structure block, strings block.
class FitBuilder {
public:
    FitBuilder& BeginNode(const std::string& name);
    FitBuilder& EndNode();
    // The text and its terminating NUL.
    FitBuilder& StringProperty(const std::string& name, const std::string& value);
    // The value bytes exactly as given, padded to the next 4-byte boundary.
    FitBuilder& Property(const std::string& name, const std::string& value);
    // A property naming whatever lies at name_offset, inside the strings block
    // or not.
    FitBuilder& PropertyAt(uint32_t name_offset, const std::string& value);
    FitBuilder& Token(uint32_t token);
    // Pads the strings block with NULs up to size (never shrinks it).
    FitBuilder& StringsBlockSize(uint32_t size);

    // The structure block is closed with the end token.
    std::string Build() const;

private:
    uint32_t NameOffset(const std::string& name);

    std::string m_structure;
    std::string m_strings;
};

// Tokens of the structure block.
constexpr uint32_t kFitBeginNode = 1;
constexpr uint32_t kFitEndNode = 2;
constexpr uint32_t kFitProperty = 3;
constexpr uint32_t kFitNop = 4;
constexpr uint32_t kFitEnd = 9;

// Byte offset of the header field that tests damage.
constexpr size_t kFitStructureSizeField = 36;

void PutBigEndian32(std::string& image, size_t offset, uint32_t value);

// A rescue kernel image as the build makes it: the root's own properties
// (version among them), then /images holding a kernel of payload_size bytes
// of moderately compressible data, then /configurations.
std::string RescueFitImage(const std::string& version, size_t payload_size);

// The bytes as one gzip member, as the build compresses rescue images.
std::string Gzip(const std::string& bytes);

} // namespace sim
