#include <windows.h>

#include "agenterror.h"
#include "base/handle.h"
#include "base/paths.h"
#include "control/remoteengine.h"
#include "engine/engine.h"
#include "engine/inprocessengine.h"
#include "failuretext.h"

namespace dorvo::agent {
namespace {

// How long a resident agent may take from owning the data directory to answering.
constexpr ULONGLONG patienceMs = 5'000;

struct ChangeNotificationPolicy {
    using value_type = HANDLE;
    static value_type invalid() { return INVALID_HANDLE_VALUE; }
    static void close(value_type value) { FindCloseChangeNotification(value); }
};
using ChangeNotification = UniqueHandle<ChangeNotificationPolicy>;

// Signalled when a file comes or goes in the data directory, as the control file does.
ChangeNotification watchDataDirectory() {
    std::wstring directory;
    if (!dataDirectory(directory) || !createDirectories(directory)) {
        throw AgentError("The data directory cannot be made: " + failureText(GetLastError()));
    }
    return ChangeNotification(
        FindFirstChangeNotificationW(directory.c_str(), FALSE, FILE_NOTIFY_CHANGE_FILE_NAME));
}

}  // namespace

std::unique_ptr<Engine> openEngine() {
    const ChangeNotification changes = watchDataDirectory();
    HANDLE changed = changes ? changes.get() : nullptr;
    const ULONGLONG end = GetTickCount64() + patienceMs;
    for (;;) {
        if (auto resident = RemoteEngine::connect()) {
            return resident;
        }
        const ULONGLONG now = GetTickCount64();
        const auto left = static_cast<DWORD>(now < end ? end - now : 0);
        try {
            return std::make_unique<InProcessEngine>(changed, left);
        } catch (const DataOwned&) {
            // A file has come or gone: the owner may be a resident that answers by now.
            if (left == 0 || changed == nullptr ||
                WaitForSingleObject(changed, 0) != WAIT_OBJECT_0) {
                throw;
            }
            FindNextChangeNotification(changed);
        }
    }
}

}  // namespace dorvo::agent
