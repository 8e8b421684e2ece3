// Threads over ACE: started joinable, joined once by whoever owns the handle.
#pragma once

#include <windows.h>

namespace dorvo {

// False, with `thread` null and the thread's last error, when the system makes no thread.
bool startThread(DWORD(WINAPI* body)(void*), void* argument, HANDLE& thread);

// Puts another way of making threads in the place of startThread()'s own and returns the former;
// null brings that back. For tests, in which the system is to make none.
using ThreadStarter = bool (*)(DWORD(WINAPI* body)(void*), void* argument, HANDLE& thread);
ThreadStarter setThreadStarter(ThreadStarter starter);

// Waits for the end of the thread, closes the handle and clears it; a null handle is joined
// already. False, with the handle kept, when the wait fails or the thread is the caller's own.
bool joinThread(HANDLE& thread);

}  // namespace dorvo
