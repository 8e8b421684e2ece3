#include "data/backuppath.h"

#include <algorithm>

#include "base/text.h"
#include "data/sourcepath.h"
#include "text/agenterror.h"

namespace dorvo::agent {
namespace {

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
