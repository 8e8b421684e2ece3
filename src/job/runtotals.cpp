#include "job/runtotals.h"

#include <windows.h>

#include <utility>

#include "base/paths.h"
#include "base/text.h"
#include "settings/jsonstorage.h"

namespace dorvo {
namespace {

constexpr char directoriesKey[] = "directories";
constexpr char filesKey[] = "files";
constexpr char sizeKey[] = "size";

std::wstring folderOf(const std::wstring& jobDirectory) {
    return jobDirectory + L"\\act";
}

std::wstring pathOf(const std::wstring& jobDirectory) {
    return folderOf(jobDirectory) + L"\\totals";
}

class RunTotals : public JSONObjectStorage {
public:
    explicit RunTotals(const std::wstring& jobDirectory) { path_ = toUtf8(pathOf(jobDirectory)); }

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

}  // namespace

bool saveRunTotals(const std::wstring& jobDirectory, const SourceTotals& totals) {
    RunTotals file(jobDirectory);
    file.set(totals);
    return createDirectories(folderOf(jobDirectory)) && file.save();
}

bool loadRunTotals(const std::wstring& jobDirectory, SourceTotals& totals) {
    RunTotals file(jobDirectory);
    return file.load() && file.get(totals);
}

bool removeRunTotals(const std::wstring& jobDirectory) {
    return DeleteFileW(longPath(pathOf(jobDirectory)).c_str()) != 0 ||
           GetLastError() == ERROR_FILE_NOT_FOUND || GetLastError() == ERROR_PATH_NOT_FOUND;
}

}  // namespace dorvo
