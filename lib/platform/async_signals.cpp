#include "platform/async_signals.h"

#include <pthread.h>

#include <csignal>
#include <cstdio>
#include <cstring>

#include "platform/assert_report.h"
#include "platform/debug_helpers.h"
#include "platform/print.h"

namespace tessel {

namespace {

void ReportInterrupt(int)
{
    tessel::print(stderr, "SIGINT received\n");
}

// Under a debugger SIGINT must stay deliverable so that ^C reaches it, and the
// program only notes it instead of being stopped by it.
void SetInterruptDisposition(int how)
{
    struct sigaction action {};
    sigemptyset(&action.sa_mask);
    action.sa_handler = how == kBlockSignals ? ReportInterrupt : SIG_DFL;
    sigaction(SIGINT, &action, nullptr);
}

} // namespace

void ConfigureSignals(int how)
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    if (DebugHelpers::IsDebuggerEnabled())
        SetInterruptDisposition(how);
    else
        sigaddset(&set, SIGINT);
    sigaddset(&set, SIGHUP);
    sigaddset(&set, SIGCHLD);
    sigaddset(&set, SIGRTMIN + 1);
    sigaddset(&set, SIGRTMIN + 2);

    int error = pthread_sigmask(how == kBlockSignals ? SIG_BLOCK : SIG_UNBLOCK, &set, nullptr);
    if (error != 0) {
        tessel::print(stderr, "pthread_sigmask failed: {}\n", std::strerror(error));
        TESSEL_ASSERT(false);
    }
}

} // namespace tessel
