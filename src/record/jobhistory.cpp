#include "record/jobhistory.h"

#include <windows.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <string_view>
#include <utility>
#include <vector>

#include "base/handle.h"
#include "base/local_time.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text.h"

namespace dorvo {
namespace {

constexpr std::wstring_view errorSuffix = L".errors";
constexpr std::wstring_view notesSuffix = L".notes";

// What a run's files are called after its summary, which has no suffix and is removed last: while
// it is there, the run is seen and tried again.
constexpr std::wstring_view suffixes[] = {L".errors.new", L".errors.journal", errorSuffix,
                                          notesSuffix, L""};

std::wstring runOf(const std::wstring& file) {
    const auto* const suffix =
        std::find_if(std::begin(suffixes), std::end(suffixes),
                     [&](std::wstring_view other) { return file.ends_with(other); });
    return file.substr(0, file.size() - suffix->size());
}

std::wstring historyFolder(const std::wstring& jobDirectory) {
    return jobDirectory + L"\\hist";
}

// The runs of a folder by the names of their summaries, each with its last write time.
std::map<std::wstring, uint64_t> findRuns(const std::wstring& folder) {
    std::map<std::wstring, uint64_t> runs;
    WIN32_FIND_DATAW entry;
    const FindHandle search(FindFirstFileW(longPath(folder + L"\\*").c_str(), &entry));
    if (!search) {
        return runs;
    }
    do {
        if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
            uint64_t& written = runs[runOf(entry.cFileName)];
            written = std::max(written, toTicks(entry.ftLastWriteTime));
        }
    } while (FindNextFileW(search.get(), &entry) != 0);
    return runs;
}

bool remove(const std::wstring& path) {
    if (DeleteFileW(longPath(path).c_str()) != 0 || GetLastError() == ERROR_FILE_NOT_FOUND) {
        return true;
    }
    return logFailed("Failed to remove the job history {%W}, %m.\n", path);
}

}  // namespace

std::wstring jobHistoryInfoPath(const std::wstring& jobDirectory, const std::string& instanceId) {
    return isJobId(instanceId) ? historyFolder(jobDirectory) + L"\\" + toWide(instanceId)
                               : std::wstring();
}

std::wstring jobHistoryErrorPath(const std::wstring& jobDirectory, const std::string& instanceId) {
    const std::wstring path = jobHistoryInfoPath(jobDirectory, instanceId);
    return path.empty() ? path : path + std::wstring(errorSuffix);
}

std::wstring jobHistoryNotesPath(const std::wstring& jobDirectory, const std::string& instanceId) {
    const std::wstring path = jobHistoryInfoPath(jobDirectory, instanceId);
    return path.empty() ? path : path + std::wstring(notesSuffix);
}

bool trimJobHistory(const std::wstring& jobDirectory, const std::string& current, size_t keep) {
    const std::wstring folder = historyFolder(jobDirectory);
    const std::wstring stays = toWide(current);
    std::map<std::wstring, uint64_t> found = findRuns(folder);
    const size_t all = found.size();
    found.erase(stays);
    std::vector<std::pair<uint64_t, std::wstring>> runs;
    runs.reserve(found.size());
    for (const auto& [name, written] : found) {
        runs.emplace_back(written, name);
    }
    std::sort(runs.begin(), runs.end());
    bool removed = true;
    for (size_t i = 0; i < runs.size() && i + keep < all; ++i) {
        for (const std::wstring_view suffix : suffixes) {
            if (!remove(folder + L"\\" + runs[i].second + std::wstring(suffix))) {
                removed = false;
                break;
            }
        }
    }
    return removed;
}

}  // namespace dorvo
