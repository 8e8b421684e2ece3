#include "job/activity/jobhistoryerror.h"

#include <windows.h>

#include <string_view>

#include "base/handle.h"
#include "base/paths.h"
#include "base/text.h"
#include "json_spirit/json_spirit.h"

namespace dorvo {
namespace {

// How a document with items ends; the next one goes before the last two characters.
constexpr std::string_view documentEnd = "}\n]";
constexpr LONGLONG arrayEnd = 2;

bool seekFromEnd(HANDLE file, LONGLONG distance) {
    LARGE_INTEGER offset;
    offset.QuadPart = -distance;
    return SetFilePointerEx(file, offset, nullptr, FILE_END) != 0;
}

bool endsWithItem(HANDLE file) {
    char text[documentEnd.size()];
    DWORD length = 0;
    return seekFromEnd(file, documentEnd.size()) &&
           ReadFile(file, text, sizeof(text), &length, nullptr) != 0 &&
           std::string_view(text, length) == documentEnd;
}

}  // namespace

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

bool JobHistoryError::saveLast() {
    return appendLast() || save();
}

bool JobHistoryError::appendLast() const {
    if (values_.size() < 2) {
        return false;
    }
    const FileHandle file(CreateFileW(longPath(toWide(path())).c_str(),
                                      GENERIC_READ | GENERIC_WRITE,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file || !endsWithItem(file.get()) || !seekFromEnd(file.get(), arrayEnd)) {
        return false;
    }
    // One write, so that a process that dies leaves the document as it was or with the item.
    const std::string alone =
        json_spirit::write_formatted(json_spirit::Value(json_spirit::Array{values_.back()}));
    const std::string text = "," + alone.substr(1);
    DWORD written = 0;
    return WriteFile(file.get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr) !=
               0 &&
           written == text.size();
}

}  // namespace dorvo
