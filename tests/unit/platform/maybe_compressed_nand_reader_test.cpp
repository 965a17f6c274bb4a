#include <gmock/gmock.h>

#include <iterator>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "fit_image.h"
#include "memory_nand.h"
#include "random_bytes.h"
#include "platform/maybe_compressed_nand_reader.h"

namespace {

constexpr uint32_t kEraseSize = 4096;
constexpr uint32_t kBlocks = 64;

// Like the driver, the partition has no answer for blocks past its end.
struct StrictNand : test_support::MemoryNand {
    StrictNand() : MemoryNand(kEraseSize, kBlocks) {}
    bool IsBadBlock(uint32_t offset) override
    {
        return offset < TotalSize() ? MemoryNand::IsBadBlock(offset) : throw std::out_of_range("past the end");
    }
};

using test_support::RandomBytes;

std::string Drain(const std::string& image, const std::vector<uint32_t>& bad_blocks = {})
{
    const auto nand = std::make_shared<StrictNand>();
    for (uint32_t block : bad_blocks)
        nand->SetBad(block);
    nand->WriteSkippingBadBlocks(image);
    MaybeCompressedNandReader reader(nand);
    return {std::istreambuf_iterator<char>(reader), {}};
}

// A gzip image ends where its member ends, although erased flash follows it up
// to the end of the partition; a plain image is every good block.
TEST(MaybeCompressedNandReaderTest, YieldsTheImageAsWrittenOverTheGoodBlocks)
{
    const std::tuple<std::string, bool, std::vector<uint32_t>> cases[] = {
        {"\x1f\x8a" + RandomBytes(10000, 1), false, {1, kBlocks - 1}}, // a near miss of the gzip signature
        {"x", true, {}},
        {RandomBytes(16384, 5), true, {}}, // around the decoder's buffer size
        {RandomBytes(16385, 6), true, {}},
        {std::string(200000, 'a'), true, {}},
        {RandomBytes(30000, 7), true, {0, 2, 3, 5}}, // the signature is in the first good block
    };
    for (const auto& [payload, gzip, bad_blocks] : cases) {
        std::string expected = payload;
        expected.resize(gzip ? payload.size() : kEraseSize * (kBlocks - bad_blocks.size()), '\xff');
        EXPECT_TRUE(Drain(gzip ? sim::Gzip(payload) : payload, bad_blocks) == expected) << payload.size();
    }
}

// Damaged gzip data, and reading or skipping past the end, fail the reading call.
TEST(MaybeCompressedNandReaderTest, ReportsDamageAndShortReads)
{
    const auto gzip_error = testing::ThrowsMessage<std::runtime_error>("gzip error");
    std::string image = sim::Gzip(RandomBytes(50000, 9));
    EXPECT_THAT([&] { Drain(image.substr(0, image.size() / 2)); }, gzip_error);
    image[image.size() - 8] ^= 0x01; // the checksum
    EXPECT_THAT([&] { Drain(image); }, gzip_error);

    const auto short_read = testing::ThrowsMessage<std::runtime_error>("Short read from MaybeCompressedNandReader");
    const auto nand = std::make_shared<StrictNand>();
    nand->WriteSkippingBadBlocks("plain");
    MaybeCompressedNandReader reader(nand);
    char buffer[1000];
    reader.Skip(1); // the shortest step of a skip
    reader.ReadExactly(buffer, 4);
    EXPECT_EQ(std::string(buffer, 4), "lain");
    reader.Skip(kEraseSize * kBlocks - 5 - sizeof buffer);
    reader.ReadExactly(buffer, sizeof buffer);
    EXPECT_THAT([&] { reader.ReadExactly(buffer, 1); }, short_read);
    EXPECT_THAT([&] { MaybeCompressedNandReader(nand).Skip(kEraseSize * kBlocks + 1); }, short_read);
}

} // namespace
