#pragma once

#include <cstdint>
#include <memory>
#include <mutex>

#include "platform/assert_report.h"

namespace tessel {

// Registration base for process-wide objects: the owner constructs the object
// (T derives from Singleton<T>) and keeps it alive; everyone else finds it
// through GetInstance. Construction and destruction happen while one thread
// uses it, so the pointer needs no lock.
template <typename T>
class Singleton {
public:
    static T* GetInstance()
    {
        // A pointer into the first page or off 8-byte alignment cannot be an
        // object of ours: a caller that asks too early or too late ends here
        // with a report, not with a wild dereference.
        const auto address = reinterpret_cast<std::uintptr_t>(sm_instance);
        if (address < 4096 || address % 8 != 0) {
            ReportAssertFormatted(__FILE__, __LINE__, __PRETTY_FUNCTION__, "Invalid pointer", "Pointer=%p\n",
                                  static_cast<void*>(sm_instance));
            std::abort();
        }
        return sm_instance;
    }

protected:
    Singleton()
    {
        TESSEL_ASSERT(sm_instance == NULL);
        sm_instance = static_cast<T*>(this);
    }

    ~Singleton()
    {
        TESSEL_ASSERT(sm_instance == this);
        sm_instance = nullptr;
    }

    Singleton(const Singleton&) = delete;
    Singleton& operator=(const Singleton&) = delete;

private:
    static inline T* sm_instance = nullptr;
};

// For objects made on first use and kept until the process ends.
template <typename T>
class AutoCreateSingleton {
public:
    virtual ~AutoCreateSingleton() = default;

    static T& GetInstance()
    {
        static std::once_flag once;
        std::call_once(once, [] { sm_instance.reset(new T()); });
        return *sm_instance;
    }

private:
    static inline std::unique_ptr<T> sm_instance;
};

} // namespace tessel
