// CComSingleton<T, Lock>::instance() is the one T of the process.
//
// The object is made on first use under a lock of its own class, kept as a function-local static
// and destroyed at process exit. A singleton that owns threads has an explicit stop, which its host
// calls: by the time static objects are destroyed, the other threads are gone.
//
// A T that the host of job.dll reaches too must exist once in the process, so its header ends with
//     extern template class DORVO_JOB_API ATL::CComSingleton<T, ATL::CComAutoCriticalSection>;
// and its source file with the matching explicit instantiation.
#pragma once

#include <atomic>
#include <mutex>

#include "base/api.h"
#include "base/critical_section.h"

namespace ATL {

template <class T, class Lock = CComAutoCriticalSection>
class CComSingleton {
public:
    static T* instance();

private:
    static Lock lock_;  // guards the construction of the object
    static std::atomic<T*> instance_;
};

template <class T, class Lock>
Lock CComSingleton<T, Lock>::lock_;

template <class T, class Lock>
std::atomic<T*> CComSingleton<T, Lock>::instance_{nullptr};

template <class T, class Lock>
T* CComSingleton<T, Lock>::instance() {
    if (T* made = instance_.load(std::memory_order_acquire)) {
        return made;
    }
    std::lock_guard guard(lock_);
    static T object;
    instance_.store(&object, std::memory_order_release);
    return &object;
}

}  // namespace ATL
