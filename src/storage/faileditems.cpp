#include "storage/faileditems.h"

#include <algorithm>

#include "base/text.h"

namespace dorvo {
namespace {

constexpr size_t itemsPerRequest = 1000;

}  // namespace

FailedItems::FailedItems(const std::string& document, JobActivity& activity)
    : document_(document), activity_(activity) {
    if (readError() == ERROR_SUCCESS) {
        activity_.failedItems = static_cast<uint32_t>(document_.values().size());
    }
}

bool FailedItems::add(const wchar_t* path, DWORD code, const std::string& reason) {
    if (path == nullptr || *path == L'\0') {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    // A run that was cut off between the journal and its position comes back to the same item.
    const bool repeated = !document_.values().empty() &&
                          readFailedItem(document_.values().back()).path == toUtf8(path) &&
                          readFailedItem(document_.values().back()).code == code;
    if ((!repeated && !document_.add(path, code, reason.c_str())) || !document_.saveNew()) {
        document_.forgetNew();
        return false;
    }
    activity_.failedItems = static_cast<uint32_t>(document_.values().size());
    return true;
}

bool FailedItems::clear() {
    if (!document_.clear()) {
        return false;
    }
    activity_.failedItems = 0;
    return true;
}

std::vector<FailedItem> FailedItems::list() const {
    std::vector<FailedItem> items;
    items.reserve(document_.values().size());
    for (const json_spirit::Value& value : document_.values()) {
        if (FailedItem item = readFailedItem(value); !item.path.empty()) {
            items.push_back(std::move(item));
        }
    }
    return items;
}

bool FailedItems::eachBatch(const std::function<bool(std::span<const FailedItem>)>& submit) const {
    const std::vector<FailedItem> all = list();
    for (size_t done = 0; done < all.size(); done += itemsPerRequest) {
        if (!submit(std::span(all).subspan(done, std::min(itemsPerRequest, all.size() - done)))) {
            return false;
        }
    }
    return true;
}

}  // namespace dorvo
