#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

// A watchdog for a wait that must not hang the device: unless the object is
// destroyed within the timeout, its thread reports on stderr and aborts the
// whole process, so that the boot goes on with a core instead of a stuck
// collector. Destruction cancels it quietly.
class AbortOnTimeout {
public:
    explicit AbortOnTimeout(std::chrono::nanoseconds timeout);
    ~AbortOnTimeout();
    AbortOnTimeout(const AbortOnTimeout&) = delete;
    AbortOnTimeout& operator=(const AbortOnTimeout&) = delete;

private:
    void Watch(std::chrono::nanoseconds timeout);

    std::mutex m_mutex;
    std::condition_variable m_cancel;
    bool m_cancelled = false;
    std::thread m_thread;
};
