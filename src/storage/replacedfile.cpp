#include "storage/replacedfile.h"

#include <winefs.h>

#include <algorithm>

#include "base/handle.h"
#include "base/last_error.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/private_access.h"
#include "base/text.h"

namespace dorvo {
namespace {

constexpr DWORD shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

FileHandle openItself(const std::wstring& path, DWORD access) {
    return FileHandle(CreateFileW(longPath(path).c_str(), access, shareAll, nullptr, OPEN_EXISTING,
                                  FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT,
                                  nullptr));
}

// The file system, or the server behind it, knows nothing of what was asked for.
bool isUnsupported(DWORD error) {
    return error == ERROR_INVALID_FUNCTION || error == ERROR_NOT_SUPPORTED ||
           error == ERROR_CALL_NOT_IMPLEMENTED;
}

bool readDescriptor(HANDLE file, SECURITY_INFORMATION parts, std::vector<std::byte>& found) {
    found.resize(1024);
    auto size = static_cast<DWORD>(found.size());
    while (GetKernelObjectSecurity(file, parts, found.data(), size, &size) == 0) {
        if (GetLastError() != ERROR_INSUFFICIENT_BUFFER || size <= found.size()) {
            found.clear();
            return false;
        }
        found.resize(size);
    }
    return true;
}

PSID ownerOf(std::vector<std::byte>& descriptor) {
    PSID owner = nullptr;
    BOOL byDefault = FALSE;
    return GetSecurityDescriptorOwner(descriptor.data(), &owner, &byDefault) != 0 ? owner : nullptr;
}

// To give files away takes this right, which the system has without using it.
void useRestorePrivilege() {
    HANDLE opened = nullptr;
    TOKEN_PRIVILEGES wanted{1, {{{}, SE_PRIVILEGE_ENABLED}}};
    if (OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &opened) ==
        0) {
        return;
    }
    const KernelHandle token(opened);
    if (LookupPrivilegeValueW(nullptr, L"SeRestorePrivilege", &wanted.Privileges[0].Luid) != 0) {
        AdjustTokenPrivileges(token.get(), FALSE, &wanted, 0, nullptr, nullptr);
    }
}

bool copyContent(HANDLE from, HANDLE to) {
    std::vector<std::byte> block(size_t{64} * 1024);
    for (;;) {
        DWORD read = 0;
        DWORD written = 0;
        if (ReadFile(from, block.data(), static_cast<DWORD>(block.size()), &read, nullptr) == 0) {
            return false;
        }
        if (read == 0) {
            return FlushFileBuffers(to) != 0;
        }
        if (WriteFile(to, block.data(), read, &written, nullptr) == 0) {
            return false;
        }
        if (written != read) {
            SetLastError(ERROR_DISK_FULL);
            return false;
        }
    }
}

bool copyStream(const std::wstring& from, const std::wstring& to) {
    const FileHandle source(CreateFileW(longPath(from).c_str(), GENERIC_READ, shareAll, nullptr,
                                        OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!source) {
        return false;
    }
    const FileHandle target(CreateFileW(longPath(to).c_str(), GENERIC_WRITE, 0, nullptr,
                                        CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    return target && copyContent(source.get(), target.get());
}

}  // namespace

bool ReplacedFile::look() {
    const FileHandle file = openItself(path_, READ_CONTROL | FILE_READ_ATTRIBUTES);
    BY_HANDLE_FILE_INFORMATION data{};
    if (!file) {
        const DWORD error = GetLastError();
        return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
    }
    if (GetFileInformationByHandle(file.get(), &data) == 0) {
        return false;
    }
    if ((data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
        return true;
    }
    link_ = (data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    encrypted_ = (data.dwFileAttributes & FILE_ATTRIBUTE_ENCRYPTED) != 0;
    found_ = readAccess(file.get());
    return found_;
}

bool ReplacedFile::readAccess(HANDLE file) {
    return readDescriptor(file, OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, access_) ||
           isUnsupported(GetLastError());
}

bool ReplacedFile::makeSuccessor(const std::wstring& successor) const {
    PrivateAccess access(PrivateAccess::Kind::file);
    if (access.attributes() == nullptr) {
        return false;
    }
    if (encrypted_) {
        const DWORD error =
            DuplicateEncryptionInfoFile(longPath(path_).c_str(), longPath(successor).c_str(),
                                        CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, access.attributes());
        SetLastError(error);
        return error == ERROR_SUCCESS;
    }
    const FileHandle file(CreateFileW(longPath(successor).c_str(), GENERIC_WRITE, 0,
                                      access.attributes(), CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                                      nullptr));
    return static_cast<bool>(file);
}

bool ReplacedFile::handDown(const std::wstring& successor) {
    const DWORD attributes = GetFileAttributesW(longPath(successor).c_str());
    if (encrypted_ && (attributes & FILE_ATTRIBUTE_ENCRYPTED) == 0) {
        SetLastError(ERROR_ENCRYPTION_FAILED);
        return false;
    }
    if (!copyStreams(successor)) {
        return false;
    }
    if (access_.empty()) {
        return true;
    }
    giveOwner(successor);
    return giveAccess(successor);
}

bool ReplacedFile::copyStreams(const std::wstring& successor) const {
    WIN32_FIND_STREAM_DATA stream{};
    const FindHandle search(
        link_ ? INVALID_HANDLE_VALUE
              : FindFirstStreamW(longPath(path_).c_str(), FindStreamInfoStandard, &stream, 0));
    if (!search) {
        // A file without any stream, or one that is gone by now, has nothing to hand down.
        const DWORD error = GetLastError();
        return link_ || error == ERROR_HANDLE_EOF || error == ERROR_FILE_NOT_FOUND ||
               error == ERROR_INVALID_PARAMETER || isUnsupported(error);
    }
    do {
        const std::wstring name = stream.cStreamName;
        if (name != L"::$DATA" && !copyStream(path_ + name, successor + name)) {
            return false;
        }
    } while (FindNextStreamW(search.get(), &stream) != 0);
    return GetLastError() == ERROR_HANDLE_EOF;
}

void ReplacedFile::giveOwner(const std::wstring& successor) {
    const FileHandle file = openItself(successor, READ_CONTROL | WRITE_OWNER);
    std::vector<std::byte> now;
    PSID const owner = ownerOf(access_);
    if (file && readDescriptor(file.get(), OWNER_SECURITY_INFORMATION, now)) {
        PSID const mine = ownerOf(now);
        if (owner == nullptr || (mine != nullptr && EqualSid(owner, mine) != 0)) {
            return;
        }
        useRestorePrivilege();
        if (SetKernelObjectSecurity(file.get(), OWNER_SECURITY_INFORMATION, access_.data()) != 0) {
            return;
        }
    }
    LastErrorGuard keep;
    log(LogLevel::warning, "The owner of file {%s} is not kept, error-code = %d, %m.\n",
        toUtf8(path_), keep.error());
}

// As it stands, inherited entries too: to inherit them anew could let others in.
bool ReplacedFile::giveAccess(const std::wstring& successor) {
    SECURITY_DESCRIPTOR_CONTROL control = 0;
    DWORD revision = 0;
    if (GetSecurityDescriptorControl(access_.data(), &control, &revision) != 0 &&
        (control & SE_DACL_AUTO_INHERITED) != 0) {
        SetSecurityDescriptorControl(access_.data(), SE_DACL_AUTO_INHERIT_REQ,
                                     SE_DACL_AUTO_INHERIT_REQ);
    }
    const FileHandle file = openItself(successor, WRITE_DAC);
    return file &&
           (SetKernelObjectSecurity(file.get(), DACL_SECURITY_INFORMATION, access_.data()) != 0 ||
            isUnsupported(GetLastError()));
}

}  // namespace dorvo
