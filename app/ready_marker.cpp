#include "app/ready_marker.h"

#include <fcntl.h>
#include <unistd.h>

#include <string>

#include "app/paths.h"
#include "platform/posix_helpers.h"
#include "platform/unique_fd.h"

namespace {

// fsync of a file makes its content durable; fsync of a directory makes the
// names created or removed in it durable. Neither failing is worth a dump:
// the data is then as durable as this storage makes it.
void SyncQuietly(const char* path, int flags)
{
    const tessel::UniqueFd fd(::open(path, O_RDONLY | O_CLOEXEC | flags));
    if (fd.valid())
        ::fsync(fd.get());
}

void SyncOutputDirectory()
{
    SyncQuietly(paths::kOutputDirectory, O_DIRECTORY);
}

} // namespace

void WithdrawReadyMarker()
{
    if (::unlink(paths::kReadyMarker) == 0)
        SyncOutputDirectory();
}

void SyncInfoFileName()
{
    SyncOutputDirectory();
}

void PublishReadyMarker()
{
    WriteFile(paths::kReadyMarker, "", 0, 0666);
    SyncOutputDirectory();
}
