#include "engine/directorywatch.h"

#include <array>

#include "base/paths.h"
#include "text/agenterror.h"
#include "text/failuretext.h"

namespace dorvo::agent {

DirectoryWatch::DirectoryWatch() {
    std::wstring directory;
    if (!dataDirectory(directory) || !createDirectories(directory)) {
        throw AgentError("The data directory cannot be made: " + failureText(GetLastError()));
    }
    changes_.reset(
        FindFirstChangeNotificationW(directory.c_str(), FALSE, FILE_NOTIFY_CHANGE_FILE_NAME));
}

DirectoryWatch::Woken DirectoryWatch::wait(HANDLE other, DWORD ms) {
    std::array<HANDLE, 2> handles{};
    DWORD count = 0;
    if (other != nullptr) {
        handles[count++] = other;
    }
    if (changes_) {
        handles[count++] = changes_.get();
    }
    if (count == 0) {
        Sleep(ms);
        return Woken::time;
    }
    const DWORD got = WaitForMultipleObjects(count, handles.data(), FALSE, ms);
    if (got >= WAIT_OBJECT_0 + count) {
        return Woken::time;
    }
    if (handles[got - WAIT_OBJECT_0] == other) {
        return Woken::other;
    }
    taken();
    return Woken::change;
}

void DirectoryWatch::taken() {
    FindNextChangeNotification(changes_.get());
}

}  // namespace dorvo::agent
