// A user's keys go to a recovery file and come back from one.
#include <exception>
#include <mutex>

#include "base/error_text.h"
#include "base/key_error.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text.h"
#include "base/uuid.h"
#include "settings/encodedtext.h"
#include "settings/keymanager.h"
#include "settings/recoveryfile.h"
#include "settings/storefile.h"
#include "settings/wipe.h"

namespace dorvo {
namespace {

static_assert(recoveryKeySize == aesKeySize + aesIvSize);
static_assert(recoveryKeyLimit == userKeyLimit);

bool fail(const char* action, const wchar_t* file, DWORD error) {
    SetLastError(error);
    log(LogLevel::error, "Failed to %s the recovery file \"%s\", error-code = %d, %s.\n", action,
        toUtf8(file == nullptr ? L"" : file).c_str(), static_cast<int>(error),
        errorText(error).c_str());
    return false;
}

// A name of its own in the folder of `file`; empty when there is none to be had.
std::wstring siblingOf(const std::wstring& file) {
    GUID id{};
    if (createUuid(id) != 0) {
        return {};
    }
    return file.substr(0, file.find_last_of(L"\\/:") + 1) + toWide(uuidText(id)) + L".new";
}

// The text is read back before the file gets its name: it may be all that is left one day.
bool isWritten(const std::wstring& path, const std::string& text) {
    std::string readBack;
    FileHandle file = openStoreForReading(path, FILE_SHARE_READ);
    if (!file || !readStore(std::move(file), readBack)) {
        return false;
    }
    SetLastError(ERROR_WRITE_FAULT);
    return readBack == text;
}

bool writeWhole(const std::wstring& file, const std::string& text) {
    const std::wstring fresh = siblingOf(file);
    FileHandle handle = createPrivateFile(fresh);
    if (!handle) {
        return false;
    }
    if (writeStore(std::move(handle), text) && flushFile(fresh) && isWritten(fresh, text) &&
        placeFile(fresh, file)) {
        return true;
    }
    const LastErrorGuard keep;
    DeleteFileW(longPath(fresh).c_str());
    return false;
}

// Not more than a recovery file can hold.
bool readWhole(const std::wstring& path, std::string& text) {
    FileHandle file = openStoreForReading(path, FILE_SHARE_READ);
    LARGE_INTEGER size{};
    if (!file || GetFileSizeEx(file.get(), &size) == 0) {
        return false;
    }
    if (size.QuadPart > static_cast<LONGLONG>(recoveryFileLimit)) {
        SetLastError(errorRecoveryFileDamaged);
        return false;
    }
    return readStore(std::move(file), text);
}

}  // namespace

bool KeyManagerImpl::exportKey(const char* user, const char* passphrase, const wchar_t* file) {
    const FunctionTrace trace("KeyManagerImpl::exportKey", "keymanager.cpp");
    const auto failed = [&](DWORD error) { return fail("write", file, error); };
    if (isEmpty(user) || isEmpty(passphrase) || file == nullptr || *file == L'\0') {
        return failed(ERROR_INVALID_PARAMETER);
    }
    if (fileExists(file)) {
        return failed(ERROR_FILE_EXISTS);
    }
    std::string bytes;
    const WipeAtEnd wiped(bytes);
    {
        const std::lock_guard guard(lock_);
        if (!allKeys(user, bytes)) {
            return failed(GetLastError());
        }
    }
    try {
        const std::string text = sealRecoveryFile(
            user, bytes, passphrase, randomBytes(recoverySaltSize), randomBytes(recoveryNonceSize));
        return writeWhole(file, text) || failed(GetLastError());
    } catch (const std::exception& error) {
        log(LogLevel::error, "Failed to seal the keys of user {%s}: %s.\n", user, error.what());
        return failed(ERROR_GEN_FAILURE);
    }
}

bool KeyManagerImpl::importKey(const char* user, const char* passphrase, const wchar_t* file,
                               std::string& owner) {
    const FunctionTrace trace("KeyManagerImpl::importKey", "keymanager.cpp");
    const auto failed = [&](DWORD error) { return fail("read", file, error); };
    owner.clear();
    if (isEmpty(passphrase) || file == nullptr || *file == L'\0') {
        return failed(ERROR_INVALID_PARAMETER);
    }
    std::string text;
    if (!readWhole(file, text)) {
        return failed(GetLastError());
    }
    std::string bytes;
    const WipeAtEnd wiped(bytes);
    try {
        switch (openRecoveryFile(text, passphrase, owner, bytes)) {
            case RecoveryFile::opened: break;
            case RecoveryFile::wrongPassphrase: return failed(errorWrongPassphrase);
            case RecoveryFile::damaged: return failed(errorRecoveryFileDamaged);
        }
        if (!isEmpty(user) && owner != user) {
            return failed(errorRecoveryFileOfOther);
        }
        const std::lock_guard guard(lock_);
        return takeKeys(owner, bytes) || failed(GetLastError());
    } catch (const std::exception& error) {
        log(LogLevel::error, "Failed to take the keys from \"%s\": %s.\n", toUtf8(file).c_str(),
            error.what());
        return failed(ERROR_GEN_FAILURE);
    }
}

}  // namespace dorvo
