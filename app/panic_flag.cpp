#include "app/panic_flag.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "app/fall_back.h"
#include "app/paths.h"
#include "platform/errno_exception.h"
#include "platform/print.h"
#include "platform/unique_fd.h"

bool PanicFlagSet()
{
    return CallOrFallBack(false, "Failed to open panic flag file: {}\n",
                          "Failed to open panic flag file: Unknown exception\n", [] {
        tessel::UniqueFd fd(::open(paths::kPanicFlag, O_RDONLY | O_CLOEXEC));
        if (!fd.valid())
            throw ErrnoException(errno, paths::kPanicFlag);

        // Only the first byte counts: the kernel writes "0" or "1" and a line end.
        char flag = 0;
        const ssize_t n = ::read(fd.get(), &flag, 1);
        if (n < 0) {
            tessel::print(stderr, "Failed to read panic flag: {}\n", std::strerror(errno));
            return false;
        }
        if (n == 0) {
            tessel::print(stderr, "Failed to read panic flag: empty\n");
            return false;
        }
        if (flag == '1')
            return true;
        if (flag != '0')
            tessel::print(stderr, "Unrecognised panic flag\n");
        return false;
    });
}
