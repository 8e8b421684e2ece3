#include "notify/jobnotifymanager.h"

#include <exception>
#include <mutex>

#include "base/log.h"
#include "scheduler/iocp_dispatcher.h"

template class ATL::CComSingleton<dorvo::JobNotifyManagerImpl, ATL::CComAutoCriticalSection>;

namespace dorvo {

bool JobNotifyObserver::post_event(const json_spirit::Value& value) {
    return deliver(json_spirit::write(value));
}

bool JobNotifyObserver::post_evenet(const Notify_Event* event) {
    return event != nullptr && deliver(event->event());
}

bool JobNotifyManagerImpl::post(Notify_Event* event) {
    return Iocp_Dispatcher::instance()->post(0, this, reinterpret_cast<OVERLAPPED*>(event));
}

bool JobNotifyManagerImpl::registerObserver(JobNotifyObserver* observer) {
    std::lock_guard guard(lock_);
    return observer != nullptr && observers_.insert(observer).second;
}

bool JobNotifyManagerImpl::unregisterObserver(JobNotifyObserver* observer) {
    std::lock_guard guard(lock_);
    return observers_.erase(observer) == 1;
}

void JobNotifyManagerImpl::completion(DWORD, ULONG_PTR, OVERLAPPED* event) {
    if (event == nullptr) {
        return;
    }
    std::lock_guard guard(lock_);
    const std::unique_ptr<Notify_Event> owned(reinterpret_cast<Notify_Event*>(event));
    const std::string& user = owned->get_user();
    for (JobNotifyObserver* observer : observers_) {
        if (!observer->user().empty() && !user.empty() && observer->user() != user) {
            continue;
        }
        try {
            observer->post_evenet(owned.get());
        } catch (const std::exception& error) {
            log(LogLevel::error, "Failed to deliver event to observer of user {%s}, %s.\n",
                observer->user(), error.what());
        }
    }
}

bool postEvent(std::unique_ptr<Notify_Event> event) {
    using Manager = ATL::CComSingleton<JobNotifyManagerImpl, ATL::CComAutoCriticalSection>;
    if (!Manager::instance()->post(event.get())) {
        return false;
    }
    static_cast<void>(event.release());  // the manager's now
    return true;
}

}  // namespace dorvo
