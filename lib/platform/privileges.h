#pragma once

#include <sys/types.h>

#include <vector>

// Becomes the given user, group and supplementary groups while keeping one
// capability, the right to bind ports below 1024, as an ambient capability so
// that it survives the exec of an unprivileged program. Throws ErrnoException
// naming the failed call.
void DropPrivilegesKeepingBindService(uid_t uid, gid_t gid, const std::vector<gid_t>& groups);
