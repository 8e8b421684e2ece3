#include "job/restorelist.h"

#include <algorithm>
#include <limits>
#include <set>
#include <string_view>

#include "base/error_codes.h"
#include "base/log.h"
#include "base/text.h"
#include "record/jobactsrcwriter.h"
#include "storage/web/token_loop.h"

namespace dorvo {
namespace {

// Paths are compared as they stand, like those of a backup.
bool liesIn(std::wstring_view path, std::wstring_view source) {
    return source.empty() || (path.starts_with(source) &&
                              (path.size() == source.size() || path[source.size()] == L'\\'));
}

// The sources as a backup names them, each once and none that lies below another. An empty one
// stands for all.
std::vector<std::wstring> apart(const std::vector<std::wstring>& sources) {
    std::vector<std::wstring> named;
    std::set<std::wstring, std::less<>> all;
    for (std::wstring source : sources) {
        if (source.size() > 1 && source.ends_with(L'\\')) {
            source.pop_back();
        }
        if (all.insert(source).second) {
            named.push_back(std::move(source));
        }
    }
    if (named.empty() || all.contains(std::wstring())) {
        return {std::wstring()};
    }
    std::erase_if(named, [&](std::wstring_view source) {
        for (size_t end = source.rfind(L'\\'); end != std::wstring_view::npos && end != 0;
             end = source.rfind(L'\\', end - 1)) {
            if (all.contains(source.substr(0, end))) {
                return true;
            }
        }
        return false;
    });
    return named;
}

bool damagedCatalog(LogText<std::string> words, const std::wstring& source) {
    return logFailed(ERROR_INVALID_DATA, words, toUtf8(source));
}

}  // namespace

bool RestoreListGenerator::generate(const std::wstring& path,
                                    const std::vector<std::wstring>& sources) {
    return writeSourceListFile(path, [&](JobHistorySourceWriter& writer) {
        for (const std::wstring& source : apart(sources)) {
            if (!writeSource(writer, source)) {
                return false;
            }
        }
        if (missing_ != 0) {
            log(LogLevel::error, "The backup's list has lost %Q items.\n", missing_);
            reportFailed(L"\\", errorLostBytes);
        }
        return true;
    });
}

bool RestoreListGenerator::writeSource(JobHistorySourceWriter& writer, const std::wstring& source) {
    RestoreCatalog::Page page;
    TokenLoop loop;
    bool found = false;
    do {
        if (!nextPage(source, page) || !writePage(writer, source, page)) {
            return false;
        }
        found = found || !page.items.empty();
        if (!page.next.empty() && loop.closedBy(page.next)) {
            return damagedCatalog("The backup's list does not come to its end, source {%s}.\n",
                                  source);
        }
    } while (!page.next.empty());
    missing_ = std::max(missing_, page.missing);
    if (!found && !source.empty()) {
        reportFailed(source, ERROR_FILE_NOT_FOUND);
    }
    return true;
}

// Puts the page behind `page` in its place.
bool RestoreListGenerator::nextPage(const std::wstring& source, RestoreCatalog::Page& page) const {
    if (options_.stop != nullptr && options_.stop->interrupted()) {
        SetLastError(ERROR_CANCELLED);
        return false;
    }
    const std::string after = std::move(page.next);
    page = {};
    return options_.catalog->list(source, after, page);
}

bool RestoreListGenerator::writePage(JobHistorySourceWriter& writer, const std::wstring& source,
                                     const RestoreCatalog::Page& page) {
    for (const RestoreCatalog::Item& item : page.items) {
        if (!liesIn(item.path, source)) {
            return damagedCatalog("The backup's list names what was not asked for, source {%s}.\n",
                                  source);
        }
        if (!JobHistorySourceWriter::fits(item.path)) {
            reportFailed(item.path, ERROR_FILENAME_EXCED_RANGE);
            continue;
        }
        if (itemNumber_ == std::numeric_limits<uint32_t>::max()) {
            return damagedCatalog("The backup's list is endless, source {%s}.\n", source);
        }
        if (!writer.addEntry(item.path, item.data, ++itemNumber_)) {
            return false;
        }
        processFile(item.path.c_str(), item.data);
    }
    return true;
}

void RestoreListGenerator::reportFailed(const std::wstring& path, DWORD error) const {
    if (options_.failedItem) {
        options_.failedItem(path, error);
    }
}

}  // namespace dorvo
