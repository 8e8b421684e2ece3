#include "settings/storefile.h"

#include <iterator>

#include "base/handle_streambuf.h"
#include "base/last_error.h"
#include "base/paths.h"
#include "base/private_access.h"
#include "base/sharing_retry.h"

namespace dorvo {
namespace {

FileHandle open(const std::wstring& path, DWORD access, DWORD share, DWORD disposition,
                SECURITY_ATTRIBUTES* security = nullptr) {
    return FileHandle(CreateFileW(longPath(path).c_str(), access, share, security, disposition,
                                  FILE_ATTRIBUTE_NORMAL, nullptr));
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
    PrivateAccess access(PrivateAccess::Kind::file);
    if (access.attributes() == nullptr) {
        return {};
    }
    return open(path, GENERIC_WRITE, FILE_SHARE_READ, CREATE_NEW, access.attributes());
}

bool flushFile(const std::wstring& path) {
    const FileHandle file = open(path, GENERIC_WRITE, FILE_SHARE_READ, OPEN_EXISTING);
    return file && FlushFileBuffers(file.get()) != 0;
}

bool replaceFile(const std::wstring& from, const std::wstring& to) {
    bool replaced = false;
    SharingRetry retry;
    do {
        replaced =
            flushFile(from) && MoveFileExW(longPath(from).c_str(), longPath(to).c_str(),
                                           MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
    } while (!replaced && retry.again(ERROR_ACCESS_DENIED));
    return replaced;
}

bool replaceStore(const std::wstring& path, const std::string& text) {
    const std::wstring fresh = path + L".new";
    FileHandle file;
    SharingRetry retry;
    do {
        file = open(fresh, GENERIC_WRITE, 0, CREATE_ALWAYS);
    } while (!file && retry.again());
    if (!file) {
        return false;
    }
    if (writeStore(std::move(file), text) && replaceFile(fresh, path)) {
        return true;
    }
    const LastErrorGuard keep;
    DeleteFileW(longPath(fresh).c_str());
    return false;
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
