#include "app/core_image.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "app/paths.h"
#include "platform/errno_exception.h"
#include "platform/unique_fd.h"

bool CoreImageKept()
{
    tessel::UniqueFd fd(::open(paths::kCoreImage, O_RDONLY | O_CLOEXEC));
    if (!fd.valid())
        throw ErrnoException(errno, paths::kCoreImage);

    // The device is empty when nothing was kept; a read error means the same.
    char first = 0;
    return ::read(fd.get(), &first, 1) == 1;
}

uint64_t CoreImageSize()
{
    const tessel::UniqueFd fd(::open(paths::kCoreImage, O_RDONLY | O_CLOEXEC));
    if (!fd.valid())
        return 0;
    std::vector<char> chunk(1 << 16);
    uint64_t size = 0;
    for (;;) {
        const ssize_t n = ::read(fd.get(), chunk.data(), chunk.size());
        if (n > 0)
            size += static_cast<uint64_t>(n);
        else if (n == 0 || errno != EINTR)
            return size;
    }
}
