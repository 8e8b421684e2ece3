#include "base/paths.h"

#include <windows.h>

#include <shlobj.h>

#include <algorithm>
#include <array>
#include <cwctype>

#include "base/private_access.h"
#include "base/text.h"

namespace dorvo {
namespace {

constexpr std::wstring_view dataFolder = L"\\trevold\\Dorvo";

bool isDeviceName(std::string_view id) {
    const std::string_view stem = id.substr(0, id.find('.'));
    static constexpr std::array<std::string_view, 6> names = {"CON", "PRN",    "AUX",
                                                              "NUL", "CONIN$", "CONOUT$"};
    if (std::any_of(names.begin(), names.end(),
                    [&](std::string_view name) { return equalsIgnoreCase(stem, name); })) {
        return true;
    }
    const std::string_view port = stem.substr(0, 3);
    return stem.size() == 4 && stem[3] >= '0' && stem[3] <= '9' &&
           (equalsIgnoreCase(port, "COM") || equalsIgnoreCase(port, "LPT"));
}

// The data directory holds what opens the backups, and jobs that run with the agent's rights:
// others of this machine may neither read nor add to it.
bool createDirectory(const std::wstring& path) {
    std::wstring data;
    if (!path.ends_with(dataFolder) || !dataDirectory(data) || path != data) {
        return CreateDirectoryW(longPath(path).c_str(), nullptr) != 0;
    }
    PrivateAccess access(PrivateAccess::Kind::folder);
    return access.attributes() != nullptr &&
           CreateDirectoryW(longPath(path).c_str(), access.attributes()) != 0;
}

}  // namespace

bool dataDirectory(std::wstring& path) {
    path.clear();
    wchar_t folder[MAX_PATH];
    if (SHGetFolderPathW(nullptr, CSIDL_COMMON_APPDATA, nullptr, 0, folder) != S_OK) {
        return false;
    }
    path.assign(folder).append(dataFolder);
    return true;
}

bool jobRoot(std::wstring& path) {
    if (!dataDirectory(path)) {
        return false;
    }
    path += L"\\job";
    return true;
}

bool jobDirectory(std::string_view id, std::wstring& path) {
    path.clear();
    if (!isJobId(id)) {
        SetLastError(ERROR_INVALID_NAME);
        return false;
    }
    if (!jobRoot(path)) {
        return false;
    }
    path.append(L"\\").append(toWide(id));
    return true;
}

bool isJobId(std::string_view id) {
    constexpr size_t longestName = 128;
    if (id.empty() || id.size() > longestName || id.back() == '.' || id.back() == ' ') {
        return false;
    }
    const bool plain = std::none_of(id.begin(), id.end(), [](char c) {
        return static_cast<unsigned char>(c) < 32 ||
               std::string_view("\\/:*?\"<>|").find(c) != std::string_view::npos;
    });
    return plain && !isDeviceName(id);
}

bool createDirectories(const std::wstring& path) {
    if (createDirectory(path)) {
        return true;
    }
    const DWORD error = GetLastError();
    if (error == ERROR_ALREADY_EXISTS) {
        return true;
    }
    const size_t parent = path.find_last_of(L"\\/");
    if (error != ERROR_PATH_NOT_FOUND || parent == std::wstring::npos || parent == 0) {
        return false;
    }
    return createDirectories(path.substr(0, parent)) &&
           (createDirectory(path) || GetLastError() == ERROR_ALREADY_EXISTS);
}

std::wstring executableDirectory() {
    wchar_t path[MAX_PATH];
    const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    const std::wstring_view whole(path, length);
    const size_t end = whole.rfind(L'\\');
    return end == std::wstring_view::npos ? std::wstring() : std::wstring(whole.substr(0, end + 1));
}

std::wstring longPath(std::wstring_view path) {
    const auto startsWith = [&](std::wstring_view prefix) {
        return path.substr(0, prefix.size()) == prefix;
    };
    const bool drive = path.size() >= 3 && std::iswalpha(static_cast<wint_t>(path[0])) != 0 &&
                       path[1] == L':' && (path[2] == L'\\' || path[2] == L'/');
    std::wstring result(path);
    if (drive) {
        std::replace(result.begin(), result.end(), L'/', L'\\');
        return L"\\\\?\\" + result;
    }
    if (startsWith(L"\\\\") && !startsWith(L"\\\\?\\") && !startsWith(L"\\\\.\\")) {
        return L"\\\\?\\UNC" + result.substr(1);
    }
    return result;
}

}  // namespace dorvo
