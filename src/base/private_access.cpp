#include "base/private_access.h"

#include <aclapi.h>
#include <sddl.h>

#include "base/handle.h"

namespace dorvo {
namespace {

struct FreeLocal {
    void operator()(void* memory) const { LocalFree(memory); }
};

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
    std::wstring sid = text;
    LocalFree(text);
    return sid;
}

PSECURITY_DESCRIPTOR parse(const std::wstring& text) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    return ConvertStringSecurityDescriptorToSecurityDescriptorW(text.c_str(), SDDL_REVISION_1,
                                                                &descriptor, nullptr) != 0
               ? descriptor
               : nullptr;
}

// The flags and the rights of an entry, as the security descriptor language writes them.
const wchar_t* rightsOf(PrivateAccess::Kind kind) {
    switch (kind) {
        case PrivateAccess::Kind::file: return L";FA";
        case PrivateAccess::Kind::folder: return L"OICI;FA";
        case PrivateAccess::Kind::registryKey: return L"CI;KA";
        case PrivateAccess::Kind::mutex: return L";GA";
    }
    return L";FA";
}

}  // namespace

PrivateAccess::PrivateAccess(Kind kind) {
    const std::wstring user = processUser();
    if (user.empty()) {
        return;
    }
    const std::wstring allow = std::wstring(L"(A;") + rightsOf(kind) + L";;;";
    const std::wstring access = L"D:P" + allow + L"SY)" + allow + L"BA)" + allow + user + L")";
    descriptor_.reset(parse(access));
    attributes_ = {sizeof(attributes_), descriptor_.get(), FALSE};
}

bool isOwnedByOurs(const std::wstring& folder) {
    PSID owner = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    const DWORD error =
        GetNamedSecurityInfoW(folder.c_str(), SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, &owner,
                              nullptr, nullptr, nullptr, &descriptor);
    const std::unique_ptr<void, FreeLocal> owned(descriptor);
    SetLastError(error);
    if (error != ERROR_SUCCESS) {
        return false;
    }
    if (IsWellKnownSid(owner, WinBuiltinAdministratorsSid) != 0 ||
        IsWellKnownSid(owner, WinLocalSystemSid) != 0) {
        return true;
    }
    wchar_t* text = nullptr;
    if (ConvertSidToStringSidW(owner, &text) == 0) {
        return false;
    }
    const std::unique_ptr<void, FreeLocal> ownedText(text);
    const bool ours = processUser() == text;
    SetLastError(ERROR_SUCCESS);
    return ours;
}

bool giveToAdministrators(const std::wstring& folder) {
    const std::unique_ptr<void, FreeLocal> descriptor(
        parse(L"O:BAD:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)"));
    PSID owner = nullptr;
    PACL access = nullptr;
    BOOL present = FALSE;
    BOOL byDefault = FALSE;
    if (!descriptor || GetSecurityDescriptorOwner(descriptor.get(), &owner, &byDefault) == 0 ||
        GetSecurityDescriptorDacl(descriptor.get(), &present, &access, &byDefault) == 0) {
        return false;
    }
    std::wstring name = folder;
    const DWORD error =
        SetNamedSecurityInfoW(name.data(), SE_FILE_OBJECT,
                              OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION |
                                  PROTECTED_DACL_SECURITY_INFORMATION,
                              owner, nullptr, access, nullptr);
    SetLastError(error);
    return error == ERROR_SUCCESS;
}

}  // namespace dorvo
