// Who may open a file.
#pragma once

#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include <string>

namespace dorvo::test {

// As an SDDL text: "D:P(A;;FA;;;BA)...".
inline std::wstring accessTo(const std::wstring& path) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    wchar_t* text = nullptr;
    GetNamedSecurityInfoW(path.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                          nullptr, nullptr, &descriptor);
    ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor, SDDL_REVISION_1,
                                                         DACL_SECURITY_INFORMATION, &text, nullptr);
    std::wstring access = text == nullptr ? L"" : text;
    LocalFree(text);
    LocalFree(descriptor);
    return access;
}

}  // namespace dorvo::test
