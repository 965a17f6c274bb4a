#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "fit_image.h"
#include "kernel_log.h"
#include "memory_nand.h"
#include "platform/maybe_compressed_nand_reader.h"

namespace {

using test_support::MemoryNand;

constexpr uint32_t kEraseSize = 4096;
constexpr uint32_t kBlocks = 64;

std::string RandomBytes(size_t size, uint32_t seed)
{
    std::string bytes(size, '\0');
    for (char& byte : bytes) {
        seed = seed * 1664525u + 1013904223u;
        byte = static_cast<char>(seed >> 24);
    }
    return bytes;
}

// Everything the stream yields up to its end.
std::string Drain(MaybeCompressedNandReader& reader)
{
    std::string all;
    char piece[1000];
    while (reader.read(piece, sizeof piece) || reader.gcount() > 0)
        all.append(piece, static_cast<size_t>(reader.gcount()));
    return all;
}

std::shared_ptr<MemoryNand> Flash(const std::string& image, const std::vector<uint32_t>& bad_blocks = {})
{
    auto nand = MemoryNand::Make(kEraseSize, kBlocks);
    for (uint32_t block : bad_blocks)
        nand->SetBad(block);
    nand->WriteSkippingBadBlocks(image);
    return nand;
}

struct ImageCase {
    const char* name;
    std::string payload;
    bool gzip;
    std::vector<uint32_t> bad_blocks;

    friend void PrintTo(const ImageCase& c, std::ostream* out) { *out << c.name; }
};

class ReadBackTest : public ::testing::TestWithParam<ImageCase> {};

// A gzip image ends where its member ends, although erased flash follows it
// up to the end of the partition; a plain image is the whole partition.
TEST_P(ReadBackTest, YieldsTheImageAsWritten)
{
    const ImageCase& c = GetParam();
    auto nand = Flash(c.gzip ? sim::Gzip(c.payload) : c.payload, c.bad_blocks);
    MaybeCompressedNandReader reader(nand);
    const std::string all = Drain(reader);
    if (c.gzip) {
        EXPECT_TRUE(all == c.payload) << all.size() << " bytes instead of " << c.payload.size();
    } else {
        ASSERT_EQ(all.size(), size_t{kEraseSize} * (kBlocks - c.bad_blocks.size()));
        EXPECT_TRUE(all.compare(0, c.payload.size(), c.payload) == 0);
        EXPECT_TRUE(std::all_of(all.begin() + static_cast<long>(c.payload.size()), all.end(),
                                [](char byte) { return byte == '\xff'; }));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Images, ReadBackTest,
    ::testing::Values(ImageCase{"Plain", RandomBytes(10000, 1), false, {}},
                      ImageCase{"PlainAroundABadBlock", RandomBytes(10000, 2), false, {1}},
                      ImageCase{"GzipOneByte", "x", true, {}},
                      // Sizes around the decoder's buffer, where the end of the
                      // member and the end of a buffer meet.
                      ImageCase{"GzipBuffer", RandomBytes(16384, 5), true, {}},
                      ImageCase{"GzipBufferPlus1", RandomBytes(16385, 6), true, {}},
                      ImageCase{"GzipCompressible", std::string(200000, 'a'), true, {}},
                      ImageCase{"GzipAroundBadBlocks", RandomBytes(30000, 7), true, {2, 3, 5}},
                      // The signature itself sits in the first good block.
                      ImageCase{"GzipAfterABadFirstBlock", RandomBytes(30000, 8), true, {0}}),
    [](const auto& test) { return std::string(test.param.name); });

struct DamageCase {
    const char* name;
    // Damages the compressed image in place.
    void (*damage)(std::string& image);

    friend void PrintTo(const DamageCase& c, std::ostream* out) { *out << c.name; }
};

class CorruptGzipTest : public ::testing::TestWithParam<DamageCase> {};

TEST_P(CorruptGzipTest, EndsInGzipError)
{
    std::string image = sim::Gzip(RandomBytes(50000, 9));
    GetParam().damage(image);
    MaybeCompressedNandReader reader(Flash(image));
    try {
        Drain(reader);
        FAIL() << "no error";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "gzip error");
    }
}

INSTANTIATE_TEST_SUITE_P(
    Damage, CorruptGzipTest,
    ::testing::Values(DamageCase{"FlippedDataByte", [](std::string& i) { i[i.size() / 2] ^= 0x10; }},
                      DamageCase{"WrongChecksum", [](std::string& i) { i[i.size() - 8] ^= 0x01; }},
                      DamageCase{"WrongLength", [](std::string& i) { i[i.size() - 1] ^= 0x01; }},
                      DamageCase{"UnknownMethod", [](std::string& i) { i[2] = 7; }},
                      // Erased flash takes the place of the missing half.
                      DamageCase{"Truncated", [](std::string& i) { i.resize(i.size() / 2); }}),
    [](const auto& test) { return std::string(test.param.name); });

// A partition whose reads come back shorter than asked, as a failing driver's
// might.
class ShortReadingNand : public MemoryNand {
public:
    using MemoryNand::MemoryNand;
    size_t Read(uint32_t offset, void* buffer, size_t length) override
    {
        return MemoryNand::Read(offset, buffer, std::min<size_t>(length, 100));
    }
};

TEST(MaybeCompressedNandReaderTest, ShortPartitionReadIsAnError)
{
    MaybeCompressedNandReader reader(std::make_shared<ShortReadingNand>(kEraseSize, kBlocks));
    char buffer[1000];
    try {
        reader.ReadExactly(buffer, sizeof buffer);
        FAIL() << "no error";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Short read from MaybeCompressedNandReader");
    }
}

TEST(MaybeCompressedNandReaderDeathTest, NeitherSeeksNorWrites)
{
    auto nand = Flash("plain");
    EXPECT_DEATH(
        {
            test_support::ForceReportsToStandardError();
            MaybeCompressedNandReader reader(nand);
            reader.seekg(10);
        },
        "ASSERT FAILED: false\r\nlib/platform/maybe_compressed_nand_reader.cpp:[0-9]+:.*NandSource::seek");
    EXPECT_DEATH(
        {
            test_support::ForceReportsToStandardError();
            MaybeCompressedNandReader::NandSource source(nand);
            source.write("x", 1);
        },
        "ASSERT FAILED: false\r\nlib/platform/maybe_compressed_nand_reader.cpp:[0-9]+:.*NandSource::write");
}

} // namespace
