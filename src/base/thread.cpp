#include "base/thread.h"

#include <ace/OS_NS_Thread.h>
#include <ace/Thread.h>

#include <atomic>

#include "base/log.h"

namespace dorvo {
namespace {

bool startAceThread(DWORD(WINAPI* body)(void*), void* argument, HANDLE& thread) {
    startAce();
    thread = nullptr;
    ACE_hthread_t started = nullptr;
    if (ACE_OS::thr_create(body, argument, THR_NEW_LWP | THR_JOINABLE, nullptr, &started) != 0) {
        return false;
    }
    thread = started;
    return true;
}

std::atomic<ThreadStarter> currentStarter{startAceThread};

}  // namespace

bool startThread(DWORD(WINAPI* body)(void*), void* argument, HANDLE& thread) {
    return currentStarter.load()(body, argument, thread);
}

ThreadStarter setThreadStarter(ThreadStarter starter) {
    return currentStarter.exchange(starter == nullptr ? startAceThread : starter);
}

bool joinThread(HANDLE& thread) {
    if (thread == nullptr) {
        return true;
    }
    if (GetThreadId(thread) == GetCurrentThreadId()) {
        SetLastError(ERROR_POSSIBLE_DEADLOCK);
        return false;
    }
    if (ACE_Thread::join(thread) != 0) {
        return false;
    }
    thread = nullptr;
    return true;
}

}  // namespace dorvo
