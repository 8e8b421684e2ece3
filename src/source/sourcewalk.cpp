#include "source/sourcewalk.h"

#include <algorithm>
#include <string_view>

#include "base/files.h"
#include "base/handle.h"
#include "base/last_error.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text.h"
#include "source/filterpolicy.h"

namespace dorvo {
namespace {

constexpr size_t usualPath = 260;

bool isDirectory(DWORD attributes) {
    return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool isLink(DWORD attributes) {
    return (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

bool isDots(std::wstring_view name) {
    return name == L"." || name == L"..";
}

void appendSeparator(std::wstring& path) {
    if (path.empty() || (path.back() != L'\\' && path.back() != L'/')) {
        path.push_back(L'\\');
    }
}

}  // namespace

void SourceCalculator::processFile(const wchar_t*, const WIN32_FILE_ATTRIBUTE_DATA& data) {
    if ((data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
        ++directories_;
        return;
    }
    ++files_;
    size_ += sizeOf(data);
}

bool SourceFileSystem::attributes(const std::wstring& path, WIN32_FILE_ATTRIBUTE_DATA& data) {
    return GetFileAttributesExW(longPath(path).c_str(), GetFileExInfoStandard, &data) != 0;
}

bool SourceFileSystem::targetAttributes(const std::wstring& path, WIN32_FILE_ATTRIBUTE_DATA& data) {
    constexpr DWORD shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const FileHandle target(CreateFileW(longPath(path).c_str(), FILE_READ_ATTRIBUTES, shareAll,
                                        nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS,
                                        nullptr));
    BY_HANDLE_FILE_INFORMATION found;
    if (!target || GetFileInformationByHandle(target.get(), &found) == 0) {
        return false;
    }
    data = {found.dwFileAttributes & ~DWORD{FILE_ATTRIBUTE_REPARSE_POINT},
            found.ftCreationTime,
            found.ftLastAccessTime,
            found.ftLastWriteTime,
            found.nFileSizeHigh,
            found.nFileSizeLow};
    return true;
}

HANDLE SourceFileSystem::findFirst(const std::wstring& pattern, WIN32_FIND_DATAW& entry) {
    return FindFirstFileW(longPath(pattern).c_str(), &entry);
}

bool SourceFileSystem::findNext(HANDLE search, WIN32_FIND_DATAW& entry) {
    return FindNextFileW(search, &entry) != 0;
}

void SourceFileSystem::findClose(HANDLE search) {
    FindClose(search);
}

SourceWalk::SourceWalk(SourceWalker& walker, Rules rules)
    : walker_(walker),
      rules_(std::move(rules)),
      files_(rules_.files != nullptr ? *rules_.files : real_),
      entry_{} {
    path_.reserve(usualPath);
}

SourceWalk::~SourceWalk() {
    while (!levels_.empty()) {
        leave();
    }
}

void SourceWalk::walk(const std::vector<std::wstring>& sources) {
    for (const std::wstring& source : sources) {
        if (stopped()) {
            return;
        }
        walkSource(source);
    }
}

void SourceWalk::walkSource(const std::wstring& source) {
    path_ = source;
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (!files_.attributes(path_, data)) {
        tellFailure(GetLastError());
        return;
    }
    if (rules_.followSources && isLink(data.dwFileAttributes) &&
        !files_.targetAttributes(path_, data)) {
        tellFailure(GetLastError());
        return;
    }
    const bool directory = isDirectory(data.dwFileAttributes);
    if (!included(path_.c_str()) && !directory) {
        noteFilteredOut();
        return;
    }
    if (!report(data) || !directory || isLink(data.dwFileAttributes) || !enter()) {
        return;
    }
    while (!levels_.empty()) {
        if (stopped()) {
            while (!levels_.empty()) {
                leave();
            }
            return;
        }
        if (visit() && enter()) {
            continue;
        }
        while (!levels_.empty() && !advance()) {
            leave();
        }
    }
}

// Reports the entry; true when it is a directory to be entered.
bool SourceWalk::visit() {
    if (isDots(entry_.cFileName)) {
        return false;
    }
    path_.resize(levels_.back().pathLength);
    appendSeparator(path_);
    path_ += entry_.cFileName;
    const bool directory = isDirectory(entry_.dwFileAttributes);
    const bool enterable = directory && !isLink(entry_.dwFileAttributes);
    if (directory && !enterable) {
        tellNotEntered();
    }
    if (!included(entry_.cFileName) && !enterable) {
        if (!directory) {
            noteFilteredOut();
        }
        return false;
    }
    const WIN32_FILE_ATTRIBUTE_DATA data = {entry_.dwFileAttributes, entry_.ftCreationTime,
                                            entry_.ftLastAccessTime, entry_.ftLastWriteTime,
                                            entry_.nFileSizeHigh,    entry_.nFileSizeLow};
    return report(data) && enterable;
}

// Opens the directory at path_ as the innermost level, with its first entry.
bool SourceWalk::enter() {
    HANDLE search = files_.findFirst(pattern(), entry_);
    if (search == INVALID_HANDLE_VALUE) {
        listFailed(GetLastError());
        return false;
    }
    levels_.push_back({search, path_.size()});
    return true;
}

// Brings the innermost level's next entry; false at its end.
bool SourceWalk::advance() {
    if (files_.findNext(levels_.back().search, entry_)) {
        return true;
    }
    const DWORD error = GetLastError();
    path_.resize(levels_.back().pathLength);
    listFailed(error);
    return false;
}

void SourceWalk::leave() {
    files_.findClose(levels_.back().search);
    levels_.pop_back();
}

bool SourceWalk::included(const wchar_t* name) const {
    return rules_.filter == nullptr || rules_.filter->isInclude(name);
}

void SourceWalk::noteFilteredOut() {
    filteredOut_ = filteredOut_ || !excluded();
}

bool SourceWalk::report(const WIN32_FILE_ATTRIBUTE_DATA& data) {
    if (excluded() || (rules_.refused && rules_.refused(path_))) {
        return false;
    }
    walker_.processFile(path_.c_str(), data);
    return true;
}

std::wstring SourceWalk::pattern() const {
    std::wstring pattern;
    pattern.reserve(usualPath);
    pattern = path_;
    appendSeparator(pattern);
    return pattern += L'*';
}

void SourceWalk::listFailed(DWORD error) const {
    if (error != ERROR_NO_MORE_FILES && error != ERROR_SUCCESS) {
        log(LogLevel::error, "Failed to iterate '%s', err=%d, %s.\n", toUtf8(pattern()), error,
            errorText(error));
        // Nothing is there: the root of a drive has no entries of its own, as folders have.
        if (error != ERROR_FILE_NOT_FOUND) {
            tellFailure(error);
        }
    }
}

void SourceWalk::tellFailure(DWORD error) const {
    if (rules_.failed && !excluded()) {
        rules_.failed(path_, error);
    }
}

// A filter takes away the link's own name, never what lies behind it.
void SourceWalk::tellNotEntered() const {
    if (rules_.notEntered && !excluded()) {
        rules_.notEntered(path_, entry_.dwReserved0);
    }
}

void walkSource(const std::vector<std::wstring>& sources, FilterPolicy* filter,
                SourceWalker* walker) {
    if (walker == nullptr) {
        return;
    }
    SourceWalk::Rules rules;
    rules.filter = filter;
    SourceWalk(*walker, rules).walk(sources);
}

std::string notEnteredText(const std::wstring& path, DWORD tag) {
    if (!leadsElsewhere(tag)) {
        return "what it holds is kept by another program and is not read";
    }
    return isVolumeMountedAt(path)
               ? "another volume is mounted here: name this folder to back it up as well"
               : "a link to another place: name it to back up what is there as well";
}

std::wstring firstLinkIn(const std::wstring& path, const std::wstring& mountPoint) {
    size_t begin = mountPoint.size();
    while (begin < path.size()) {
        const size_t end = std::min(path.find(L'\\', begin), path.size());
        std::wstring folder = path.substr(0, end);
        const std::optional<DWORD> tag = reparseTag(folder);
        if (tag && leadsElsewhere(*tag)) {
            return folder;
        }
        begin = end + 1;
    }
    return {};
}

}  // namespace dorvo
