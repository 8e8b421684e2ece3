#include "data/runhistory.h"

#include <windows.h>

#include <algorithm>

#include "base/handle.h"
#include "base/http_error.h"
#include "base/job_state.h"
#include "base/local_time.h"
#include "base/paths.h"
#include "base/text.h"
#include "record/jobhistory.h"
#include "record/jobhistoryerror.h"
#include "settings/jsonstorage.h"
#include "storage/items.h"
#include "text/failuretext.h"
#include "text/printable.h"
#include "text/timetext.h"

namespace dorvo::agent {
namespace {

template <class Members>
const json_spirit::Value& member(const Members& members, const char* name) {
    const auto found = members.find(name);
    return found == members.end() ? json_spirit::Value::null : found->second;
}

template <class Members>
std::string textOf(const Members& members, const char* name) {
    const json_spirit::Value& value = member(members, name);
    return value.type() == json_spirit::str_type ? value.get_str() : std::string();
}

template <class Members>
uint64_t numberOf(const Members& members, const char* name) {
    const json_spirit::Value& value = member(members, name);
    if (value.type() != json_spirit::int_type || (!value.is_uint64() && value.get_int64() < 0)) {
        return 0;
    }
    return value.get_uint64();
}

struct Document {
    std::string instanceId;
    uint64_t written;
};

// The summaries in the folder, newest first.
std::vector<Document> documents(const std::wstring& folder) {
    std::vector<Document> found;
    WIN32_FIND_DATAW entry;
    const FindHandle search(FindFirstFileW(longPath(folder + L"\\*").c_str(), &entry));
    if (!search) {
        return found;
    }
    do {
        const std::string name = toUtf8(entry.cFileName);
        if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0 &&
            name.find('.') == std::string::npos) {
            found.push_back({name, toTicks(entry.ftLastWriteTime)});
        }
    } while (FindNextFileW(search.get(), &entry) != 0);
    std::sort(found.begin(), found.end(),
              [](const Document& a, const Document& b) { return a.written > b.written; });
    return found;
}

// 0 where one of them is none, or the clock was set back.
uint64_t secondsBetween(const std::string& start, const std::string& end) {
    const uint64_t from = ticksOfText(start);
    const uint64_t to = ticksOfText(end);
    return from == 0 || to < from ? 0 : (to - from) / ticksPerSecond;
}

std::vector<FailedItem> readFailedItems(const std::wstring& directory,
                                        const std::string& instanceId) {
    std::vector<FailedItem> items;
    const JobHistoryError document(toUtf8(jobHistoryErrorPath(directory, instanceId)));
    for (const json_spirit::Value& entry : document.values()) {
        auto [path, code, reason] = readFailedItem(entry);
        if (!path.empty()) {
            std::replace(path.begin(), path.end(), '/', '\\');
            items.push_back({std::move(path), code, std::move(reason)});
        }
    }
    return items;
}

}  // namespace

std::string FailedItem::text() const {
    return printable(path + ": " + why());
}

std::string FailedItem::why() const {
    return reason.empty() || isHttpStatus(code) ? failureText(code) : reason;
}

json_spirit::Ordered_array failedJson(const std::vector<FailedItem>& items) {
    json_spirit::Ordered_array array;
    for (const FailedItem& item : items) {
        array.emplace_back(json_spirit::Ordered_object{
            {"path", item.path}, {"code", item.code}, {"reason", item.why()}});
    }
    return array;
}

PastRun loadRun(const std::string& jobId, const std::string& instanceId) {
    PastRun run;
    run.instanceId = instanceId;
    std::wstring directory;
    if (!jobDirectory(jobId, directory)) {
        return run;
    }
    JSONObjectStorage summary;
    summary.load(toUtf8(jobHistoryInfoPath(directory, instanceId)).c_str());
    run.startTime = textOf(summary.values(), "starttime");
    run.endTime = textOf(summary.values(), "endtime");
    run.seconds = secondsBetween(run.startTime, run.endTime);
    run.state = textOf(summary.values(), "state");
    run.files = numberOf(summary.values(), "filescount");
    run.totalSize = numberOf(summary.values(), "totalsize");
    run.bytesPerSecond = numberOf(summary.values(), "speed");
    run.failed = readFailedItems(directory, instanceId);
    run.notes = loadNotes(jobId, instanceId);
    return run;
}

std::vector<PastRun> loadRuns(const std::string& jobId, size_t most) {
    std::vector<PastRun> runs;
    std::wstring directory;
    if (!jobDirectory(jobId, directory)) {
        return runs;
    }
    std::vector<Document> newest = documents(directory + L"\\hist");
    newest.resize(std::min(newest.size(), most));
    for (const Document& document : newest) {
        runs.push_back(loadRun(jobId, document.instanceId));
    }
    return runs;
}

uint64_t lastCompletion(const std::string& jobId) {
    std::wstring directory;
    if (!jobDirectory(jobId, directory)) {
        return 0;
    }
    for (const Document& document : documents(directory + L"\\hist")) {
        JSONObjectStorage summary;
        summary.load(toUtf8(jobHistoryInfoPath(directory, document.instanceId)).c_str());
        if (textOf(summary.values(), "state") == jobStateToString(JobState::completed)) {
            return ticksOfText(textOf(summary.values(), "endtime"));
        }
    }
    return 0;
}

std::vector<FailedItem> loadFailedItems(const std::string& jobId, const std::string& instanceId) {
    std::wstring directory;
    return jobDirectory(jobId, directory) ? readFailedItems(directory, instanceId)
                                          : std::vector<FailedItem>();
}

}  // namespace dorvo::agent
