// Notices files that come to the data directory or go from it.
//
// One thread. Where the system gives no such notice, only the time and the other handle end a wait.
#pragma once

#include <windows.h>

#include "base/handle.h"

namespace dorvo::agent {

class DirectoryWatch {
public:
    enum class Woken { change, other, time };

    // From now on. Makes the directory where it isn't there; throws AgentError.
    DirectoryWatch();

    // Until a file has come or gone since the construction or the last Woken::change, or `other`
    // (borrowed, may be null) is signalled, or the time is over.
    Woken wait(HANDLE other, DWORD ms);

    // For a wait beside something else; null where there is no notice. After its signal taken()
    // makes it ready for the next.
    HANDLE handle() const { return changes_ ? changes_.get() : nullptr; }
    void taken();

private:
    struct Policy {
        using value_type = HANDLE;
        static value_type invalid() { return INVALID_HANDLE_VALUE; }
        static void close(value_type value) { FindCloseChangeNotification(value); }
    };

    UniqueHandle<Policy> changes_;
};

}  // namespace dorvo::agent
