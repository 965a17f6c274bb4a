// The rescue version against the cheapest way to touch the same image once:
// a plain pass that only reads it (and, for a gzip image, decompresses it).
// Reading the version should cost no more than that pass, read no more of the
// partition than the image, and hold the same memory whatever the image size.
#include <benchmark/benchmark.h>

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "app/fit_reader.h"
#include "fit_image.h"
#include "memory_nand.h"
#include "platform/maybe_compressed_nand_reader.h"

// Heap use of everything allocated through operator new (the streams, their
// buffers, the strings block). zlib allocates its fixed state with malloc and
// is not counted.
namespace {

std::atomic<size_t> g_heap_now{0};
std::atomic<size_t> g_heap_peak{0};

void* Allocate(size_t size)
{
    void* p = std::malloc(size == 0 ? 1 : size);
    if (p == nullptr)
        throw std::bad_alloc();
    const size_t now = g_heap_now += malloc_usable_size(p);
    size_t peak = g_heap_peak.load();
    while (now > peak && !g_heap_peak.compare_exchange_weak(peak, now)) {
    }
    return p;
}

void Release(void* p) noexcept
{
    if (p == nullptr)
        return;
    g_heap_now -= malloc_usable_size(p);
    std::free(p);
}

} // namespace

void* operator new(size_t size)
{
    return Allocate(size);
}
void operator delete(void* p) noexcept
{
    Release(p);
}
void operator delete(void* p, size_t) noexcept
{
    Release(p);
}

namespace {

constexpr uint32_t kEraseSize = 128 * 1024;
constexpr size_t kMiB = 1024 * 1024;

struct Flashed {
    std::shared_ptr<test_support::MemoryNand> nand;
    size_t flashed_size;  // what the partition holds: the image, or its gzip
    size_t image_size;    // the FIT image itself
};

// One partition per image size and form, made once: building and compressing
// the images takes longer than the runs.
const Flashed& Partition(size_t mebibytes, bool gzip)
{
    static std::map<std::pair<size_t, bool>, Flashed> made;
    auto found = made.find({mebibytes, gzip});
    if (found != made.end())
        return found->second;

    const std::string image = sim::RescueFitImage("6.1.55-rescue", mebibytes * kMiB);
    const std::string flashed = gzip ? sim::Gzip(image) : image;
    const auto blocks = static_cast<uint32_t>(flashed.size() / kEraseSize + 8);
    auto nand = test_support::MemoryNand::Make(kEraseSize, blocks);
    nand->SetBad(blocks / 3); // a bad block inside the image, as real flash has
    nand->WriteSkippingBadBlocks(flashed);
    return made[{mebibytes, gzip}] = Flashed{nand, flashed.size(), image.size()};
}

void RescueVersion(benchmark::State& state, bool gzip)
{
    const Flashed& partition = Partition(static_cast<size_t>(state.range(0)), gzip);
    const uint64_t read_before = partition.nand->BytesRead();
    const size_t heap_before = g_heap_now;
    g_heap_peak = heap_before;
    for (auto _ : state) {
        std::string version = ReadFitRootProperty(partition.nand, "version");
        benchmark::DoNotOptimize(version);
    }
    const double runs = static_cast<double>(state.iterations());
    state.counters["flashed_MiB"] = static_cast<double>(partition.flashed_size) / kMiB;
    const auto read = static_cast<double>(partition.nand->BytesRead() - read_before);
    state.counters["read_per_flashed"] = read / runs / static_cast<double>(partition.flashed_size);
    state.counters["peak_heap_KiB"] = static_cast<double>(g_heap_peak - heap_before) / 1024;
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(partition.image_size));
}

// The same image through the same stream, read once from start to end.
void SequentialPass(benchmark::State& state, bool gzip)
{
    const Flashed& partition = Partition(static_cast<size_t>(state.range(0)), gzip);
    std::unique_ptr<char[]> piece(new char[64 * 1024]);
    for (auto _ : state) {
        MaybeCompressedNandReader reader(partition.nand);
        for (size_t left = partition.image_size; left > 0;) {
            const size_t length = std::min<size_t>(left, 64 * 1024);
            reader.ReadExactly(piece.get(), length);
            left -= length;
        }
        benchmark::DoNotOptimize(piece.get());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(partition.image_size));
}

// The floor beneath both: copying the partition's bytes out, nothing else.
void RawPartitionCopy(benchmark::State& state)
{
    const Flashed& partition = Partition(static_cast<size_t>(state.range(0)), false);
    std::unique_ptr<char[]> piece(new char[kEraseSize]);
    for (auto _ : state) {
        size_t left = partition.flashed_size;
        for (uint32_t offset = 0; left > 0; offset += kEraseSize) {
            if (partition.nand->IsBadBlock(offset))
                continue;
            const size_t length = std::min<size_t>(left, kEraseSize);
            partition.nand->Read(offset, piece.get(), length);
            left -= length;
        }
        benchmark::DoNotOptimize(piece.get());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(partition.image_size));
}

BENCHMARK_CAPTURE(RescueVersion, plain, false)->Arg(1)->Arg(8)->Arg(32)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(SequentialPass, plain, false)->Arg(1)->Arg(8)->Arg(32)->Unit(benchmark::kMillisecond);
BENCHMARK(RawPartitionCopy)->Arg(8)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(RescueVersion, gzip, true)->Arg(1)->Arg(8)->Arg(32)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(SequentialPass, gzip, true)->Arg(1)->Arg(8)->Arg(32)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
