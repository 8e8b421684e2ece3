#include "source/owndata.h"

#include <windows.h>

#include <algorithm>
#include <array>

#include "base/handle.h"
#include "base/paths.h"

namespace dorvo {
namespace {

std::wstring dataPath() {
    std::wstring path;
    dataDirectory(path);
    return path;
}

std::wstring lastTwoNames(const std::wstring& path) {
    const size_t last = path.rfind(L'\\');
    const size_t before =
        last == std::wstring::npos || last == 0 ? std::wstring::npos : path.rfind(L'\\', last - 1);
    return before == std::wstring::npos ? std::wstring() : path.substr(before);
}

bool identify(const std::wstring& path, BY_HANDLE_FILE_INFORMATION& found) {
    constexpr DWORD shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const FileHandle folder(CreateFileW(longPath(path).c_str(), FILE_READ_ATTRIBUTES, shareAll,
                                        nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS,
                                        nullptr));
    return folder && GetFileInformationByHandle(folder.get(), &found) != 0;
}

// "JOB\<id>" and "JOB\<id>\DEF".
bool isDefinition(std::wstring_view part) {
    constexpr std::wstring_view jobs = L"JOB\\";
    if (!part.starts_with(jobs)) {
        return false;
    }
    part.remove_prefix(jobs.size());
    const size_t end = part.find(L'\\');
    return end == std::wstring_view::npos || part.substr(end) == L"\\DEF";
}

}  // namespace

OwnData::OwnData() : OwnData(dataPath()) {}

OwnData::OwnData(std::wstring directory) : directory_(std::move(directory)) {
    if (!directory_.empty()) {
        const ComparablePath own(directory_);
        names_.insert(own.text());
        tail_ = lastTwoNames(own.text());
    }
}

std::optional<std::wstring> OwnData::partOf(const ComparablePath& path) {
    if (tail_.empty()) {
        return std::nullopt;
    }
    const std::wstring& whole = path.text();
    for (size_t at = whole.find(tail_); at != std::wstring::npos; at = whole.find(tail_, at + 1)) {
        const size_t end = at + tail_.size();
        if ((end == whole.size() || whole[end] == L'\\') && isDirectory(whole.substr(0, end))) {
            return end == whole.size() ? std::wstring() : whole.substr(end + 1);
        }
    }
    return std::nullopt;
}

bool OwnData::leavesOut(const ComparablePath& path) {
    static constexpr std::array<std::wstring_view, 4> kept = {L"", L"OPTIONS", L"EXCLUSIONS",
                                                              L"JOB"};
    const std::optional<std::wstring> part = partOf(path);
    return part && std::find(kept.begin(), kept.end(), *part) == kept.end() && !isDefinition(*part);
}

// `path` is in comparable form. A folder that is not there yet is told by its name alone.
bool OwnData::isDirectory(const std::wstring& path) {
    if (names_.contains(path) || others_.contains(path)) {
        return names_.contains(path);
    }
    BY_HANDLE_FILE_INFORMATION own{};
    BY_HANDLE_FILE_INFORMATION other{};
    const bool same = identify(directory_, own) && identify(path, other) &&
                      own.dwVolumeSerialNumber == other.dwVolumeSerialNumber &&
                      own.nFileIndexHigh == other.nFileIndexHigh &&
                      own.nFileIndexLow == other.nFileIndexLow;
    (same ? names_ : others_).insert(path);
    return same;
}

}  // namespace dorvo
