#include "record/jobwait.h"

#include "base/paths.h"
#include "base/text.h"
#include "settings/jsonstorage.h"

namespace dorvo {
namespace {

constexpr char untilKey[] = "until";

class WaitFile : public JSONObjectStorage {
public:
    explicit WaitFile(const std::wstring& folder) { path_ = toUtf8(folder + L"\\waits"); }

    void set(uint64_t until) { values_[untilKey] = until; }
    uint64_t get() const {
        const auto found = values_.find(untilKey);
        const bool number = found != values_.end() &&
                            found->second.type() == json_spirit::int_type &&
                            (found->second.is_uint64() || found->second.get_int64() >= 0);
        return number ? found->second.get_uint64() : 0;
    }
};

bool folderOf(const std::string& jobId, std::wstring& folder) {
    if (!jobDirectory(jobId, folder)) {
        return false;
    }
    folder += L"\\act";
    return true;
}

}  // namespace

bool saveWait(const std::string& jobId, uint64_t until) {
    std::wstring folder;
    if (!folderOf(jobId, folder) || !createDirectories(folder)) {
        return false;
    }
    WaitFile file(folder);
    file.set(until);
    return file.save();
}

uint64_t loadWait(const std::string& jobId) {
    std::wstring folder;
    if (!folderOf(jobId, folder)) {
        return 0;
    }
    WaitFile file(folder);
    return file.load() ? file.get() : 0;
}

}  // namespace dorvo
