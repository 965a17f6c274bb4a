#include "app/completion_lock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <cstdio>

#include "app/paths.h"
#include "platform/errno_exception.h"

CompletionLock::CompletionLock()
    : m_fd(::open(paths::kLockTemporary, O_WRONLY | O_CREAT | O_CLOEXEC, 0666))
{
    if (!m_fd.valid())
        throw ErrnoException(errno, paths::kLockTemporary);

    // Blocking on purpose: a second collector waits for the first to finish.
    if (::flock(m_fd.get(), LOCK_EX) != 0)
        throw ErrnoException(errno, "flock");

    // The lock belongs to the open file, so it travels with the rename.
    if (std::rename(paths::kLockTemporary, paths::kLock) != 0)
        throw ErrnoException(errno, "rename");
}
