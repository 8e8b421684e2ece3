#include "job/activity/jobhistoryerror.h"

#include "base/text.h"

namespace dorvo {

JobHistoryError::JobHistoryError(const std::string& path) {
    load(path.c_str());
}

JobHistoryError::~JobHistoryError() = default;

bool JobHistoryError::add(const wchar_t* path, uint32_t code, const char* reason) {
    if (path == nullptr || *path == L'\0') {
        return false;
    }
    values_.emplace_back(json_spirit::Object{
        {"path", toUtf8(path)}, {"code", code}, {"reason", reason == nullptr ? "" : reason}});
    return true;
}

}  // namespace dorvo
