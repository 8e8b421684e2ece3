#include "data/givenpaths.h"

#include <windows.h>

#include <algorithm>

#include "base/handle.h"
#include "base/paths.h"
#include "base/text.h"
#include "text/agenterror.h"

namespace dorvo::agent {
namespace {

bool isDriveLetter(wchar_t c) {
    return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z');
}

// Length of "C:\" or "\\server\share\" at the beginning; 0 when there is neither.
size_t rootLength(std::wstring_view path) {
    if (path.size() >= 3 && isDriveLetter(path[0]) && path[1] == L':' && path[2] == L'\\') {
        return 3;
    }
    if (path.size() < 3 || path[0] != L'\\' || path[1] != L'\\' || path[2] == L'\\') {
        return 0;
    }
    const size_t share = path.find(L'\\', 2);
    if (share == std::wstring_view::npos || share + 1 == path.size() || path[share + 1] == L'\\') {
        return 0;
    }
    const size_t end = path.find(L'\\', share + 1);
    return end == std::wstring_view::npos ? path.size() : end + 1;
}

std::wstring fullPath(const std::wstring& path) {
    const DWORD size = GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
    std::wstring full(size, L'\0');
    const DWORD length = size == 0 ? 0 : GetFullPathNameW(path.c_str(), size, full.data(), nullptr);
    full.resize(length < size ? length : 0);
    return full;
}

// The name under which the disk keeps the last component; empty when it is not there.
std::wstring spelling(const std::wstring& path) {
    WIN32_FIND_DATAW entry;
    const FindHandle search(FindFirstFileW(longPath(path).c_str(), &entry));
    return search ? entry.cFileName : std::wstring();
}

[[noreturn]] void refuse(const std::wstring& path, const std::string& why) {
    throw AgentError("'" + toUtf8(path) + "' " + why, exitUsage);
}

bool startsAtRoot(const std::wstring& path) {
    const bool drive =
        path.size() >= 2 && path[1] == L':' && (path.size() == 2 || path[2] == L'\\');
    return drive || path.rfind(L"\\\\", 0) == 0;
}

void dropTrailingBackslashes(std::wstring& path) {
    while (!path.empty() && path.back() == L'\\') {
        path.pop_back();
    }
}

bool look(RestoreCatalog& catalog, const std::wstring& path, HeldPath& held) {
    RestoreCatalog::Page page;
    if (!catalog.list(path, {}, page)) {
        return false;
    }
    held.missing = std::max(held.missing, page.missing);
    if (!page.items.empty()) {
        // A folder above what was backed up is no item of its own.
        const RestoreCatalog::Item& first = page.items.front();
        held.path = path;
        held.folder = first.path != path || first.directory();
    }
    return true;
}

}  // namespace

std::wstring absolutePath(const std::wstring& path) {
    std::wstring given = path;
    std::replace(given.begin(), given.end(), L'/', L'\\');
    if (given.rfind(L"\\\\?\\", 0) == 0 && rootLength(given.substr(4)) != 0) {
        given.erase(0, 4);
    }
    const bool device = given.rfind(L"\\\\?\\", 0) == 0 || given.rfind(L"\\\\.\\", 0) == 0;
    if (given.empty() || device || given.find(L'\0') != std::wstring::npos) {
        return {};
    }
    std::wstring full = fullPath(given);
    const size_t root = rootLength(full);
    if (root == 0 || full.find_first_of(L":*?\"<>|", 2) != std::wstring::npos) {
        return {};
    }
    full[0] = full[1] == L':' ? static_cast<wchar_t>(full[0] & ~0x20) : full[0];
    while (full.size() > root && full.back() == L'\\') {
        full.pop_back();
    }
    return full;
}

std::wstring onDiskPath(const std::wstring& path, bool mustExist) {
    const std::wstring full = absolutePath(path);
    if (full.empty()) {
        refuse(path, "is no path of a file or folder");
    }
    if (mustExist && GetFileAttributesW(longPath(full).c_str()) == INVALID_FILE_ATTRIBUTES) {
        const DWORD error = GetLastError();
        refuse(
            path,
            (error == ERROR_ACCESS_DENIED ? "cannot be read: access is denied" : "does not exist") +
                (samePath(path, full) ? std::string() : "; looked for '" + toUtf8(full) + "'"));
    }
    const size_t root = rootLength(full);
    std::wstring result = full.substr(0, root);
    size_t begin = root;
    while (begin < full.size()) {
        const size_t end = std::min(full.find(L'\\', begin), full.size());
        if (!result.empty() && result.back() != L'\\') {
            result += L'\\';
        }
        const std::wstring given = full.substr(begin, end - begin);
        const std::wstring found = spelling(result + given);
        result += found.empty() ? given : found;
        begin = end + 1;
    }
    return result;
}

bool isBelow(std::wstring_view path, std::wstring_view folder) {
    const std::wstring_view prefix = folder.substr(0, folder.find_last_not_of(L'\\') + 1);
    return path.size() > prefix.size() + 1 && path[prefix.size()] == L'\\' &&
           samePath(path.substr(0, prefix.size()), prefix);
}

std::vector<std::wstring> withoutNested(
    const std::vector<std::wstring>& paths,
    const std::function<bool(const std::wstring&, const std::wstring&)>& reached) {
    std::vector<std::wstring> kept;
    for (size_t i = 0; i < paths.size(); ++i) {
        bool covered = false;
        for (size_t j = 0; j < paths.size() && !covered; ++j) {
            covered = (isBelow(paths[i], paths[j]) && (!reached || reached(paths[j], paths[i]))) ||
                      (j < i && samePath(paths[i], paths[j]));
        }
        if (!covered) {
            kept.push_back(paths[i]);
        }
    }
    return kept;
}

std::wstring nameOfSources(const std::vector<std::wstring>& paths) {
    constexpr size_t longest = 60;
    std::wstring name;
    for (const std::wstring& path : paths) {
        name += (name.empty() ? L"" : L", ") + path;
    }
    if (name.size() <= longest || paths.size() < 2) {
        return name;
    }
    return paths.front() + L" and " + std::to_wstring(paths.size() - 1) + L" more";
}

std::wstring upperCase(std::wstring_view text) {
    std::wstring upper(text);
    CharUpperBuffW(upper.data(), static_cast<DWORD>(upper.size()));
    return upper;
}

bool samePath(std::wstring_view a, std::wstring_view b) {
    return CompareStringOrdinal(a.data(), static_cast<int>(a.size()), b.data(),
                                static_cast<int>(b.size()), TRUE) == CSTR_EQUAL;
}

std::wstring backupPath(const std::string& given) {
    std::wstring path = toWide(given);
    std::replace(path.begin(), path.end(), L'/', L'\\');
    constexpr std::wstring_view longForm = L"\\\\?\\";
    if (path.rfind(longForm, 0) == 0) {
        path.erase(0, longForm.size());
    }
    // Taken as text where that is possible: a backup may hold names that the system would change.
    if (!startsAtRoot(path)) {
        path = absolutePath(path);
    }
    dropTrailingBackslashes(path);
    if (path.size() >= 2 && path[1] == L':') {
        path[0] = path[0] >= L'a' && path[0] <= L'z' ? static_cast<wchar_t>(path[0] - 32) : path[0];
    }
    return path;
}

bool findHeldPath(RestoreCatalog& catalog, const std::string& given, HeldPath& held) {
    held = {};
    const std::wstring path = backupPath(given);
    if (path.empty()) {
        throw AgentError("'" + given + "' is no path of a file or folder", exitUsage);
    }
    if (!look(catalog, path, held)) {
        return false;
    }
    if (!held.path.empty() || absolutePath(path).empty()) {
        return true;
    }
    std::wstring spelled = onDiskPath(path, false);
    dropTrailingBackslashes(spelled);
    return spelled == path || look(catalog, spelled, held);
}

}  // namespace dorvo::agent
