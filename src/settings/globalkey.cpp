#include "settings/globalkey.h"

#include <windows.h>

#include <stdexcept>

#include "base/handle.h"
#include "base/log.h"
#include "base/private_access.h"
#include "settings/encodedtext.h"
#include "settings/wipe.h"

namespace dorvo {
namespace {

constexpr const wchar_t* keyPath = L"SOFTWARE\\trevold\\Dorvo";
constexpr const wchar_t* valueName = L"random";
constexpr size_t keyBytes = 32;
constexpr size_t base64Length = (keyBytes + 2) / 3 * 4;

LSTATUS readValue(std::string& base64) {
    wchar_t text[base64Length + 1];
    DWORD size = sizeof text;
    const LSTATUS status =
        RegGetValueW(HKEY_LOCAL_MACHINE, keyPath, valueName, RRF_RT_REG_SZ, nullptr, text, &size);
    if (status == ERROR_SUCCESS) {
        const std::wstring_view wide(text);
        base64.resize(wide.size());
        for (size_t i = 0; i < wide.size(); ++i) {
            base64[i] = static_cast<char>(wide[i] < 0x80 ? wide[i] : L'?');
        }
    }
    SecureZeroMemory(text, sizeof text);
    return status;
}

LSTATUS writeValue(const std::string& base64) {
    PrivateAccess access(PrivateAccess::Kind::registryKey);
    if (access.attributes() == nullptr) {
        return static_cast<LSTATUS>(GetLastError());
    }
    HKEY opened = nullptr;
    const LSTATUS status = RegCreateKeyExW(HKEY_LOCAL_MACHINE, keyPath, 0, nullptr, 0,
                                           KEY_SET_VALUE, access.attributes(), &opened, nullptr);
    if (status != ERROR_SUCCESS) {
        return status;
    }
    const RegistryKey key(opened);
    std::wstring text(base64.begin(), base64.end());
    const LSTATUS set =
        RegSetValueExW(key.get(), valueName, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                       static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
    SecureZeroMemory(text.data(), text.size() * sizeof(wchar_t));
    // A store that is encoded with a key that a power cut takes away would be lost with it.
    return set == ERROR_SUCCESS ? RegFlushKey(key.get()) : set;
}

// Held by the one process that makes the key, so that two don't make two.
class KeyMaker {
public:
    explicit KeyMaker(DWORD patienceMs) {
        // Without rights of its own a mutex of the system's is closed to administrators.
        PrivateAccess access(PrivateAccess::Kind::mutex);
        mutex_.reset(CreateMutexW(access.attributes(), FALSE, L"Global\\trevold.Dorvo.random"));
        const DWORD waited = mutex_ ? WaitForSingleObject(mutex_.get(), patienceMs) : WAIT_FAILED;
        error_ = waited == WAIT_OBJECT_0 || waited == WAIT_ABANDONED ? ERROR_SUCCESS
                 : waited == WAIT_TIMEOUT                            ? ERROR_TIMEOUT
                                                                     : GetLastError();
    }
    ~KeyMaker() {
        if (error_ == ERROR_SUCCESS) {
            ReleaseMutex(mutex_.get());
        }
    }
    KeyMaker(const KeyMaker&) = delete;
    KeyMaker& operator=(const KeyMaker&) = delete;

    // 0 when it is held; ERROR_TIMEOUT when another process keeps it.
    LSTATUS error() const { return static_cast<LSTATUS>(error_); }

private:
    KernelHandle mutex_;
    DWORD error_ = ERROR_SUCCESS;
};

LSTATUS makeValue(std::string& base64, DWORD patienceMs) {
    const KeyMaker maker(patienceMs);
    if (maker.error() != ERROR_SUCCESS) {
        return maker.error();
    }
    const LSTATUS status = readValue(base64);
    if (status != ERROR_FILE_NOT_FOUND) {
        return status;
    }
    std::string bytes = randomBytes(keyBytes);
    const WipeAtEnd wiped(bytes);
    base64 = encodeBase64(bytes);
    return writeValue(base64);
}

}  // namespace

bool machineKey(std::string& bytes, DWORD patienceMs) {
    std::string base64;
    base64.reserve(base64Length);
    const WipeAtEnd wiped(base64);
    LSTATUS status = readValue(base64);
    try {
        if (status == ERROR_FILE_NOT_FOUND) {
            status = makeValue(base64, patienceMs);
        }
        if (status == ERROR_SUCCESS) {
            bytes = decodeBase64(base64);
            status = bytes.size() == keyBytes ? ERROR_SUCCESS : ERROR_INVALID_DATA;
        }
    } catch (const std::runtime_error&) {
        status = ERROR_INVALID_DATA;
    }
    if (status != ERROR_SUCCESS) {
        const auto error = static_cast<DWORD>(status);
        log(LogLevel::error, "Failed to get the global key, error = %d.\n", error);
        SetLastError(error);
    }
    return status == ERROR_SUCCESS;
}

}  // namespace dorvo
