#include "job/runtotals.h"

#include <windows.h>

#include <set>
#include <string_view>
#include <utility>

#include "base/files.h"
#include "base/paths.h"
#include "base/sharing_retry.h"
#include "base/text.h"
#include "record/jobactsrcreader.h"
#include "record/sourcerecord.h"
#include "settings/jsonstorage.h"

namespace dorvo {
namespace {

constexpr char directoriesKey[] = "directories";
constexpr char filesKey[] = "files";
constexpr char sizeKey[] = "size";
constexpr wchar_t totalsFile[] = L"totals";
constexpr wchar_t failedFile[] = L"failed";

std::wstring folderOf(const std::wstring& jobDirectory) {
    return jobDirectory + L"\\act";
}

std::wstring pathOf(const std::wstring& jobDirectory, const wchar_t* file) {
    return folderOf(jobDirectory) + L"\\" + file;
}

class RunTotals : public JSONObjectStorage {
public:
    RunTotals(const std::wstring& jobDirectory, const wchar_t* file) {
        path_ = toUtf8(pathOf(jobDirectory, file));
    }

    void set(const SourceTotals& totals) {
        values_[directoriesKey] = totals.directories;
        values_[filesKey] = totals.files;
        values_[sizeKey] = totals.size;
    }
    bool get(SourceTotals& totals) const {
        uint64_t directories = 0;
        uint64_t files = 0;
        if (!number(directoriesKey, directories) || !number(filesKey, files) ||
            !number(sizeKey, totals.size) || !std::in_range<uint32_t>(directories) ||
            !std::in_range<uint32_t>(files)) {
            return false;
        }
        totals.directories = static_cast<uint32_t>(directories);
        totals.files = static_cast<uint32_t>(files);
        return true;
    }

private:
    bool number(const char* key, uint64_t& value) const {
        const auto found = values_.find(key);
        if (found == values_.end() || found->second.type() != json_spirit::int_type ||
            (!found->second.is_uint64() && found->second.get_int64() < 0)) {
            return false;
        }
        value = found->second.get_uint64();
        return true;
    }
};

bool save(const std::wstring& jobDirectory, const wchar_t* name, const SourceTotals& totals) {
    RunTotals file(jobDirectory, name);
    file.set(totals);
    return createDirectories(folderOf(jobDirectory)) && file.save();
}

bool remove(const std::wstring& jobDirectory, const wchar_t* name) {
    const std::wstring path = longPath(pathOf(jobDirectory, name));
    SharingRetry retry;
    bool gone = false;
    do {
        gone = DeleteFileW(path.c_str()) != 0;
    } while (!gone && retry.again());
    return gone || GetLastError() == ERROR_FILE_NOT_FOUND || GetLastError() == ERROR_PATH_NOT_FOUND;
}

// Takes the path off the set, so that an item that stands twice in a list counts once.
void countItem(const JobActivitySourceReader& reader, uint32_t tag,
               std::set<std::wstring, std::less<>>& paths, SourceTotals& found) {
    std::wstring path;
    WIN32_FILE_ATTRIBUTE_DATA data{};
    uint64_t value = 0;
    if ((tag != tagFile && tag != tagDirectory) || !reader.entry(path, data, value) ||
        paths.erase(path) == 0) {
        return;
    }
    if (tag == tagDirectory) {
        found.directories += 1;
        return;
    }
    found.files += 1;
    found.size += sizeOf(data);
}

}  // namespace

bool saveRunTotals(const std::wstring& jobDirectory, const SourceTotals& totals) {
    return save(jobDirectory, totalsFile, totals);
}

bool loadRunTotals(const std::wstring& jobDirectory, SourceTotals& totals) {
    RunTotals file(jobDirectory, totalsFile);
    if (!file.load()) {
        return false;
    }
    if (!file.get(totals)) {
        SetLastError(ERROR_INVALID_DATA);
        return false;
    }
    return true;
}

bool removeRunTotals(const std::wstring& jobDirectory) {
    return remove(jobDirectory, totalsFile);
}

bool countFailedTotals(const std::wstring& jobDirectory, const std::wstring& list,
                       const std::vector<FailedItem>& failed) {
    if (failed.empty()) {
        return remove(jobDirectory, failedFile);
    }
    std::set<std::wstring, std::less<>> paths;
    for (const FailedItem& item : failed) {
        paths.insert(toWide(item.path));
    }
    SourceTotals found;
    JobActivitySourceReader reader;
    const bool listed = GetFileAttributesW(longPath(list).c_str()) != INVALID_FILE_ATTRIBUTES;
    if (listed && reader.open(list, 0)) {
        while (const uint32_t tag = reader.next()) {
            countItem(reader, tag, paths, found);
        }
    }
    return save(jobDirectory, failedFile, found);
}

SourceTotals loadFailedTotals(const std::wstring& jobDirectory) {
    SourceTotals totals;
    RunTotals file(jobDirectory, failedFile);
    return file.load() && file.get(totals) ? totals : SourceTotals();
}

}  // namespace dorvo
