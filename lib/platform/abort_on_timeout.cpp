#include "platform/abort_on_timeout.h"

#include <pthread.h>

#include <cstdio>
#include <cstdlib>

#include "platform/print.h"

AbortOnTimeout::AbortOnTimeout(std::chrono::nanoseconds timeout)
    : m_thread(&AbortOnTimeout::Watch, this, timeout)
{
    // Named so that a core taken by the abort shows which thread pulled it.
    pthread_setname_np(m_thread.native_handle(), "AbortOnTimeout");
}

AbortOnTimeout::~AbortOnTimeout()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_cancelled = true;
    }
    m_cancel.notify_one();
    m_thread.join();
}

void AbortOnTimeout::Watch(std::chrono::nanoseconds timeout)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_cancel.wait_for(lock, timeout, [this] { return m_cancelled; }))
        return;
    tessel::print(stderr, "Abort due to timeout on waitpid\n");
    std::abort();
}
