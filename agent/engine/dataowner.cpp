#include "engine/dataowner.h"

#include <span>

#include "base/md5.h"
#include "base/paths.h"
#include "base/private_access.h"
#include "base/text.h"
#include "failuretext.h"
#include "sourcepath.h"

namespace dorvo::agent {
namespace {

DWORD waitFor(HANDLE mutex, HANDLE giveUp, DWORD patienceMs) {
    const HANDLE either[] = {mutex, giveUp};
    return WaitForMultipleObjects(giveUp == nullptr ? 1 : 2, either, FALSE, patienceMs);
}

}  // namespace

DataOwner::DataOwner(HANDLE giveUp, DWORD patienceMs) {
    std::wstring directory;
    if (!dataDirectory(directory) || !createDirectories(directory)) {
        throw AgentError("The data directory cannot be made: " + failureText(GetLastError()));
    }
    // A service's mutex without rights of its own would be closed to administrators, who then could
    // not wait for it.
    PrivateAccess access(PrivateAccess::Kind::mutex);
    mutex_.reset(CreateMutexW(access.attributes(), FALSE, mutexName(directory).c_str()));
    const DWORD error = GetLastError();
    if (!mutex_ && error != ERROR_ACCESS_DENIED) {
        throw AgentError("The data directory cannot be locked: " + failureText(error));
    }
    // One that this user may not open is another's.
    const DWORD got = mutex_ ? waitFor(mutex_.get(), giveUp, patienceMs) : WAIT_TIMEOUT;
    if (got != WAIT_OBJECT_0 && got != WAIT_ABANDONED_0) {
        mutex_.reset();
        throw DataOwned(
            "Another agent is running jobs on this machine: wait until it has ended, or pause its "
            "run with Ctrl+C");
    }
}

DataOwner::~DataOwner() {
    ReleaseMutex(mutex_.get());
}

std::wstring DataOwner::mutexName(const std::wstring& dataDirectory) {
    const std::wstring path = upperCase(dataDirectory);
    return L"Global\\dorvo_" + toWide(Md5::of(std::as_bytes(std::span(path))));
}

}  // namespace dorvo::agent
