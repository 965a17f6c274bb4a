// Writes a test device's flash images to files, for the emulated board, with
// the same builders that the host's tests use:
//
//   device-images environment OUT ERASE_BLOCK_BYTES NAME=VALUE...
//       a boot loader environment filling one erase block
//   device-images rescue OUT VERSION PAYLOAD_BYTES
//       a gzip-compressed rescue kernel FIT image whose root has VERSION

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "environment_image.h"
#include "fit_image.h"

namespace {

constexpr int kUsage = 2;

int Usage()
{
    std::fputs("usage: device-images environment OUT ERASE_BLOCK_BYTES NAME=VALUE...\n"
               "       device-images rescue OUT VERSION PAYLOAD_BYTES\n",
               stderr);
    return kUsage;
}

// A positive byte count, in decimal or 0x hexadecimal, or 0 when the text is
// anything else.
size_t ParseSize(const char* text)
{
    char* end = nullptr;
    errno = 0;
    const unsigned long long value = std::strtoull(text, &end, 0);
    if (errno != 0 || end == text || *end != '\0' || value > 0x40000000)
        return 0;
    return static_cast<size_t>(value);
}

bool WriteImage(const char* path, const std::string& image)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(image.data(), static_cast<std::streamsize>(image.size()));
    out.close();
    if (out)
        return true;
    std::fprintf(stderr, "device-images: cannot write %s\n", path);
    return false;
}

int Environment(int argc, char** argv)
{
    const size_t block_size = ParseSize(argv[3]);
    if (block_size == 0)
        return Usage();
    std::vector<std::pair<std::string, std::string>> variables;
    for (int i = 4; i < argc; ++i) {
        const std::string entry = argv[i];
        const size_t equals = entry.find('=');
        if (equals == std::string::npos || equals == 0)
            return Usage();
        variables.emplace_back(entry.substr(0, equals), entry.substr(equals + 1));
    }
    return WriteImage(argv[2], sandbox::UbootEnvironmentImage(variables, block_size)) ? 0 : 1;
}

int Rescue(int argc, char** argv)
{
    const size_t payload_size = argc == 5 ? ParseSize(argv[4]) : 0;
    if (payload_size == 0)
        return Usage();
    return WriteImage(argv[2], sandbox::Gzip(sandbox::RescueFitImage(argv[3], payload_size))) ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 4)
        return Usage();
    const std::string kind = argv[1];
    if (kind == "environment")
        return Environment(argc, argv);
    if (kind == "rescue")
        return Rescue(argc, argv);
    return Usage();
}
