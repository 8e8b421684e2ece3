#include "record/jobwait.h"

#include "base/paths.h"
#include "base/text.h"
#include "json_spirit/member.h"
#include "settings/jsonstorage.h"

namespace dorvo {
namespace {

constexpr char untilKey[] = "until";
constexpr char codeKey[] = "code";
constexpr char saysKey[] = "says";

using json_spirit::numberMember;
using json_spirit::textMember;

// With what it held; without anything where there is no folder for it.
class WaitFile : public JSONObjectStorage {
public:
    explicit WaitFile(const std::string& jobId) {
        if (jobDirectory(jobId, folder_)) {
            folder_ += L"\\act";
            load(toUtf8(folder_ + L"\\waits").c_str());
        }
    }

    template <class T>
    void set(const char* key, const T& value) {
        values_[key] = value;
    }
    bool keep() { return !folder_.empty() && createDirectories(folder_) && save(); }

private:
    std::wstring folder_;
};

}  // namespace

bool saveWait(const std::string& jobId, uint64_t until) {
    WaitFile file(jobId);
    file.set(untilKey, until);
    return file.keep();
}

uint64_t loadWait(const std::string& jobId) {
    return numberMember(WaitFile(jobId).values(), untilKey);
}

bool saveWaitWords(const std::string& jobId, uint32_t code, const std::string& words) {
    if (loadWaitWords(jobId, code) == words) {
        return true;
    }
    WaitFile file(jobId);
    file.set(codeKey, code);
    file.set(saysKey, words);
    return file.keep();
}

std::string loadWaitWords(const std::string& jobId, uint32_t code) {
    const WaitFile file(jobId);
    return numberMember(file.values(), codeKey) == code ? textMember(file.values(), saysKey)
                                                        : std::string();
}

}  // namespace dorvo
