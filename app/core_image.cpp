#include "app/core_image.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

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
