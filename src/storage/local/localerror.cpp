#include "storage/local/localerror.h"

#include <algorithm>
#include <iterator>

#include "base/disk_room.h"
#include "base/error_codes.h"
#include "base/last_error.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text.h"

namespace dorvo {
namespace {

constexpr DWORD noSuchDevice = 433;  // not every platform header has the name

// A handle that has met one of these is of no use any more, even if its share is back.
constexpr DWORD lostDevice[] = {
    ERROR_NOT_READY,
    ERROR_BAD_NETPATH,
    ERROR_DEV_NOT_EXIST,
    ERROR_UNEXP_NET_ERR,
    ERROR_NETNAME_DELETED,
    ERROR_BAD_NET_NAME,
    ERROR_SEM_TIMEOUT,
    ERROR_VC_DISCONNECTED,
    noSuchDevice,
    ERROR_DEVICE_NOT_CONNECTED,
    ERROR_NETWORK_UNREACHABLE,
    ERROR_HOST_UNREACHABLE,
    ERROR_CONNECTION_ABORTED,
    ERROR_DEVICE_REMOVED,
};

// So says the system when a file that is to go is open.
constexpr DWORD heldOpen[] = {ERROR_ACCESS_DENIED, ERROR_SHARING_VIOLATION, ERROR_LOCK_VIOLATION,
                              ERROR_USER_MAPPED_FILE};

template <size_t Count>
bool isOneOf(DWORD error, const DWORD (&errors)[Count]) {
    return std::find(std::begin(errors), std::end(errors), error) != std::end(errors);
}

bool isGone(const std::wstring& location) {
    const DWORD attributes = GetFileAttributesW(longPath(location + L"\\").c_str());
    return attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

void becomeGone(const std::wstring& location, const char* why, DWORD error) {
    log(LogLevel::error, "The folder of backups {%s} %s, error-code = %d.\n", toUtf8(location), why,
        error);
    SetLastError(errorLocationGone);
}

}  // namespace

bool failedNear(const std::wstring& location) {
    const DWORD error = GetLastError();
    if (error != ERROR_CANCELLED && error != errorLocationGone && isGone(location)) {
        becomeGone(location, "is not there", error);
    } else {
        SetLastError(error);
    }
    return false;
}

bool failedIn(const std::wstring& location) {
    const DWORD error = GetLastError();
    if (isDiskFull(error)) {
        becomeGone(location, "lies on a disk that is full", error);
    } else if (isOneOf(error, lostDevice)) {
        becomeGone(location, "was lost", error);
    } else {
        failedNear(location);
    }
    return false;
}

bool failedToReplace(const std::wstring& location) {
    const DWORD error = GetLastError();
    if (isOneOf(error, heldOpen)) {
        becomeGone(location, "has a document that somebody else holds open", error);
        return false;
    }
    return failedIn(location);
}

bool failedUnfinished() {
    if (const DWORD error = GetLastError(); isDamage(error) && error != ERROR_CRC) {
        SetLastError(errorInstanceState);
    }
    return false;
}

bool failedAway(const std::wstring& location, const std::string& mark) {
    const std::string advice =
        mark.empty() ? mark : " To begin anew in it, create an empty file \"" + mark + "\" there.";
    return logFailed(
        errorLocationGone,
        "The folder of backups {%s} holds none any more, as if its disk were not mounted.%s\n",
        toUtf8(location), advice);
}

bool isDamage(DWORD error) {
    return error == ERROR_INVALID_DATA || error == ERROR_CRC || error == ERROR_FILE_CORRUPT;
}

bool logFailure(const char* action, const std::string& subject) {
    const LastErrorGuard keep;
    const DWORD error = keep.error();
    if (isKeyError(error)) {
        log(LogLevel::error, "Failed to %s {%s}, error-code = %d, %s.\n", action, subject, error,
            keyErrorText(error));
    } else {
        log(LogLevel::error, "Failed to %s {%s}, error-code = %d, %m.\n", action, subject, error);
    }
    return false;
}

}  // namespace dorvo
