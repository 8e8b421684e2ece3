#include "data/runhistory.h"

#include <windows.h>

#include <algorithm>

#include "base/error_codes.h"
#include "base/handle.h"
#include "base/job_state.h"
#include "base/local_time.h"
#include "base/paths.h"
#include "base/text.h"
#include "json_spirit/member.h"
#include "record/jobhistory.h"
#include "record/jobhistoryerror.h"
#include "record/jobhistorynotes.h"
#include "settings/jsonstorage.h"
#include "text/failuretext.h"
#include "text/format.h"

namespace dorvo::agent {

using json_spirit::numberMember;
using json_spirit::textMember;

namespace {

json_spirit::Ordered_array toJson(const std::vector<RunNote>& notes) {
    json_spirit::Ordered_array array;
    for (const RunNote& note : notes) {
        array.emplace_back(
            json_spirit::Ordered_object{{"path", note.path}, {"reason", note.reason}});
    }
    return array;
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

RunNotes loadNotes(const std::string& jobId, const std::string& instanceId) {
    RunNotes notes;
    std::wstring directory;
    JSONArrayStorage document;
    if (!jobDirectory(jobId, directory) ||
        !document.load(toUtf8(jobHistoryNotesPath(directory, instanceId)).c_str())) {
        return notes;
    }
    for (const json_spirit::Value& entry : document.values()) {
        if (entry.type() != json_spirit::obj_type) {
            continue;
        }
        const json_spirit::Object& object = entry.get_obj();
        const bool leftOut =
            textMember(object, "kind") == JobHistoryNotes::textOf(JobHistoryNotes::Kind::leftOut);
        (leftOut ? notes.leftOut : notes.warnings)
            .push_back({textMember(object, "path"), textMember(object, "reason")});
    }
    return notes;
}

void appendNotes(json_spirit::Ordered_object& json, const RunNotes& notes) {
    json.push_back({"leftOut", toJson(notes.leftOut)});
    json.push_back({"warnings", toJson(notes.warnings)});
}

std::vector<std::string> noteLines(const std::vector<RunNote>& notes, const std::string& kind,
                                   size_t most) {
    std::vector<std::string> lines;
    for (const RunNote& note : notes) {
        if (lines.size() == most) {
            lines.push_back(kind + ": " + std::to_string(notes.size() - most) +
                            " more, which --json lists");
            break;
        }
        lines.push_back(
            kind + ": " +
            printable(note.path.empty() ? note.reason : note.path + ": " + note.reason));
    }
    return lines;
}

std::string whyFailed(const FailedItem& item) {
    return item.reason.empty() || isHttpStatus(item.code) ? failureText(item.code) : item.reason;
}

std::string failedText(const FailedItem& item) {
    return printable(item.path + ": " + whyFailed(item));
}

json_spirit::Ordered_array failedJson(const std::vector<FailedItem>& items) {
    json_spirit::Ordered_array array;
    for (const FailedItem& item : items) {
        array.emplace_back(json_spirit::Ordered_object{
            {"path", item.path}, {"code", item.code}, {"reason", whyFailed(item)}});
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
    run.startTime = textMember(summary.values(), "starttime");
    run.endTime = textMember(summary.values(), "endtime");
    run.seconds = secondsBetween(run.startTime, run.endTime);
    run.state = textMember(summary.values(), "state");
    run.files = numberMember(summary.values(), "filescount");
    run.totalSize = numberMember(summary.values(), "totalsize");
    run.bytesPerSecond = numberMember(summary.values(), "speed");
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
        if (textMember(summary.values(), "state") == jobStateToString(JobState::completed)) {
            return ticksOfText(textMember(summary.values(), "endtime"));
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
