#include "image_commands.h"

#include <unistd.h>

#include <cstdio>
#include <exception>
#include <string>

#include "environment_image.h"
#include "fit_image.h"

namespace sim {

namespace {

int WriteImage(const std::string& image)
{
    if (isatty(STDOUT_FILENO)) {
        std::fputs("crash-dump-sim: the image is binary; send it to a file\n", stderr);
        return 2;
    }
    if (std::fwrite(image.data(), 1, image.size(), stdout) != image.size() || std::fflush(stdout) != 0) {
        std::perror("crash-dump-sim: writing the image");
        return 1;
    }
    return 0;
}

} // namespace

int MakeEnvironmentImage(const Options& options)
{
    try {
        return WriteImage(UbootEnvironmentImage(options.variables, options.erase_size));
    } catch (const std::length_error&) {
        std::fprintf(stderr, "crash-dump-sim: the variables do not fit into an erase block of %u bytes\n",
                     options.erase_size);
        return 2;
    }
}

int MakeFitImage(const Options& options)
{
    const std::string image = RescueFitImage(options.version, options.payload);
    return WriteImage(options.gzip ? Gzip(image) : image);
}

} // namespace sim
