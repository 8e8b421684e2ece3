#include "settings/storefile.h"

#include <sddl.h>

#include <iterator>
#include <memory>

#include "base/paths.h"
#include "base/read_handle_streambuf.h"
#include "base/write_handle_streambuf.h"

namespace dorvo {
namespace {

FileHandle open(const std::wstring& path, DWORD access, DWORD share, DWORD disposition,
                SECURITY_ATTRIBUTES* security = nullptr) {
    return FileHandle(CreateFileW(longPath(path).c_str(), access, share, security, disposition,
                                  FILE_ATTRIBUTE_NORMAL, nullptr));
}

struct FreeLocal {
    void operator()(void* memory) const { LocalFree(memory); }
};
template <class T>
using LocalMemory = std::unique_ptr<T, FreeLocal>;

// "S-1-5-21-...", empty when the system does not tell.
std::wstring processUser() {
    HANDLE opened = nullptr;
    if (OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &opened) == 0) {
        return {};
    }
    const KernelHandle token(opened);
    alignas(TOKEN_USER) BYTE user[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
    DWORD size = sizeof(user);
    wchar_t* text = nullptr;
    if (GetTokenInformation(token.get(), TokenUser, user, size, &size) == 0 ||
        ConvertSidToStringSidW(reinterpret_cast<TOKEN_USER*>(user)->User.Sid, &text) == 0) {
        return {};
    }
    const LocalMemory<wchar_t> owned(text);
    return text;
}

}  // namespace

std::wstring storePath(const wchar_t* name) {
    std::wstring path;
    return dataDirectory(path) ? path + name : std::wstring();
}

bool fileExists(const std::wstring& path) {
    return GetFileAttributesW(longPath(path).c_str()) != INVALID_FILE_ATTRIBUTES;
}

bool isMissing(const std::wstring& path) {
    if (fileExists(path)) {
        return false;
    }
    const DWORD error = GetLastError();
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

FileHandle openStoreForReading(const std::wstring& path, DWORD share) {
    return open(path, GENERIC_READ, share, OPEN_EXISTING);
}

FileHandle openStoreForWriting(const std::wstring& path, DWORD share) {
    FileHandle file = open(path, GENERIC_WRITE, share, CREATE_ALWAYS);
    const size_t folder = path.find_last_of(L"\\/");
    if (!file && GetLastError() == ERROR_PATH_NOT_FOUND && folder != std::wstring::npos &&
        createDirectories(path.substr(0, folder))) {
        file = open(path, GENERIC_WRITE, share, CREATE_ALWAYS);
    }
    return file;
}

FileHandle createPrivateFile(const std::wstring& path) {
    const std::wstring user = processUser();
    const std::wstring access = L"D:P(A;;FA;;;SY)(A;;FA;;;BA)(A;;FA;;;" + user + L")";
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (user.empty() || ConvertStringSecurityDescriptorToSecurityDescriptorW(
                            access.c_str(), SDDL_REVISION_1, &descriptor, nullptr) == 0) {
        return {};
    }
    const LocalMemory<void> owned(descriptor);
    SECURITY_ATTRIBUTES security{sizeof(security), descriptor, FALSE};
    return open(path, GENERIC_WRITE, FILE_SHARE_READ, CREATE_NEW, &security);
}

bool flushFile(const std::wstring& path) {
    const FileHandle file = open(path, GENERIC_WRITE, FILE_SHARE_READ, OPEN_EXISTING);
    return file && FlushFileBuffers(file.get()) != 0;
}

bool replaceFile(const std::wstring& from, const std::wstring& to) {
    return MoveFileExW(longPath(from).c_str(), longPath(to).c_str(),
                       MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
}

bool placeFile(const std::wstring& from, const std::wstring& to) {
    if (MoveFileExW(longPath(from).c_str(), longPath(to).c_str(), MOVEFILE_WRITE_THROUGH) != 0) {
        return true;
    }
    if (GetLastError() == ERROR_ALREADY_EXISTS) {
        SetLastError(ERROR_FILE_EXISTS);
    }
    return false;
}

bool readStore(FileHandle file, std::string& text) {
    read_handle_streambuf buffer(std::move(file));
    text.assign(std::istreambuf_iterator<char>(&buffer), {});
    SetLastError(buffer.error());
    return buffer.error() == ERROR_SUCCESS;
}

bool writeStore(FileHandle file, const std::string& text) {
    write_handle_streambuf buffer;
    buffer.attach(std::move(file));
    const auto size = static_cast<std::streamsize>(text.size());
    const bool taken = buffer.sputn(text.data(), size) == size;
    return buffer.close() && taken;
}

}  // namespace dorvo
