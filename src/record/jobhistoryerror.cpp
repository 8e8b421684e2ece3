#include "record/jobhistoryerror.h"

#include <windows.h>

#include "base/paths.h"
#include "base/sharing_retry.h"
#include "base/text.h"
#include "json_spirit/json_spirit.h"
#include "record/jobhistory.h"
#include "settings/storefile.h"

namespace dorvo {

JobHistoryError::JobHistoryError(const std::string& path)
    : journal_(toWide(path) + std::wstring(journalSuffix)) {
    path_ = path;
    if (!path.empty() && !read()) {
        readError_ = GetLastError();
        values_.clear();
    }
}

JobHistoryError::~JobHistoryError() = default;

bool JobHistoryError::read() {
    SharingRetry retry;
    do {
        documented_ = load();
    } while (!documented_ && retry.again());
    const bool missing =
        GetLastError() == ERROR_FILE_NOT_FOUND || GetLastError() == ERROR_PATH_NOT_FOUND;
    if (!documented_ && !missing) {
        return false;
    }
    const size_t inDocument = values_.size();
    if (!journal_.load(values_)) {
        return false;
    }
    saved_ = values_.size();
    documented_ = documented_ && saved_ == inDocument;
    return true;
}

bool JobHistoryError::add(const wchar_t* path, uint32_t code, const char* reason) {
    if (path == nullptr || *path == L'\0') {
        return false;
    }
    values_.emplace_back(json_spirit::Object{
        {"path", toUtf8(path)}, {"code", code}, {"reason", reason == nullptr ? "" : reason}});
    return true;
}

// Whether there are files that may be written.
bool JobHistoryError::writable() const {
    if (readError_ == ERROR_SUCCESS && !path_.empty()) {
        return true;
    }
    SetLastError(path_.empty() ? DWORD{ERROR_PATH_NOT_FOUND} : readError_);
    return false;
}

bool JobHistoryError::saveNew() {
    if (!writable()) {
        return false;
    }
    for (; saved_ < values_.size(); ++saved_) {
        if (!journal_.append(saved_, values_[saved_])) {
            return false;
        }
        documented_ = false;
    }
    return true;
}

bool JobHistoryError::save() {
    if (!writable()) {
        return false;
    }
    if (documented_ && saved_ == values_.size()) {
        return true;
    }
    if (!replaceDocument()) {
        return false;
    }
    documented_ = true;
    saved_ = values_.size();
    journal_.remove();  // where it stays, each item's place tells that it is in the document
    return true;
}

bool JobHistoryError::replaceDocument() {
    const std::wstring path = toWide(path_);
    const size_t folder = path.find_last_of(L"\\/");
    return (folder == std::wstring::npos || createDirectories(path.substr(0, folder))) &&
           replaceStore(path, json_spirit::write_formatted(json_spirit::Value(values_)));
}

bool JobHistoryError::clear() {
    const bool deleted = DeleteFileW(longPath(toWide(path_)).c_str()) != 0 ||
                         GetLastError() == ERROR_FILE_NOT_FOUND ||
                         GetLastError() == ERROR_PATH_NOT_FOUND;
    if (!deleted || !journal_.remove()) {
        return false;
    }
    values_.clear();
    readError_ = ERROR_SUCCESS;
    documented_ = false;
    saved_ = 0;
    return true;
}

}  // namespace dorvo
