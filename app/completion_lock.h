#pragma once

#include "platform/unique_fd.h"

// Announces a collection run to other programs. The lock is held until the
// object is destroyed; the file itself is never deleted and never written.
class CompletionLock {
public:
    CompletionLock();

private:
    tessel::UniqueFd m_fd;
};
