#include "platform/privileges.h"

#include <grp.h>
#include <sys/capability.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "platform/errno_exception.h"

namespace {

struct CapabilityStateDeleter {
    void operator()(_cap_struct* state) const { cap_free(state); }
};
using CapabilityState = std::unique_ptr<_cap_struct, CapabilityStateDeleter>;

void RaiseInAllSets(cap_t state, cap_value_t capability)
{
    for (cap_flag_t set : {CAP_PERMITTED, CAP_INHERITABLE, CAP_EFFECTIVE}) {
        if (cap_set_flag(state, set, 1, &capability, CAP_SET) != 0)
            throw ErrnoException(errno, "cap_set_flag");
    }
}

} // namespace

void DropPrivilegesKeepingBindService(uid_t uid, gid_t gid, const std::vector<gid_t>& groups)
{
    setgroups(groups.size(), groups.data());

    // Without this the change of user would empty the permitted set, and the
    // capability could not be raised again afterwards.
    if (prctl(PR_SET_KEEPCAPS, 1) != 0)
        throw ErrnoException(errno, "prctl");
    if (setgid(gid) != 0)
        throw ErrnoException(errno, "setgid");
    if (setuid(uid) != 0)
        throw ErrnoException(errno, "setuid");

    // A fresh state holds nothing else: every other capability is dropped here.
    CapabilityState state(cap_init());
    if (!state)
        throw ErrnoException(errno, "cap_init");
    RaiseInAllSets(state.get(), CAP_NET_BIND_SERVICE);
    if (cap_set_proc(state.get()) != 0)
        throw ErrnoException(errno, "cap_set_proc");

    // Only the ambient set carries a capability through the exec of a program
    // without file capabilities run by an ordinary user.
    if (prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, CAP_NET_BIND_SERVICE, 0, 0) != 0)
        throw ErrnoException(errno, "PR_CAP_AMBIENT");
}
