// The runs of a job as its history folder keeps them: what was done, what failed, and what is no
// failure but noted: what a backup left out, and what it warns of.
//
// Changes nothing. What is damaged or missing in a document counts as empty. Times are texts of UTC
// as the documents have them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "json_spirit/json_spirit.h"
#include "storage/items.h"

namespace dorvo::agent {

struct RunNote {
    std::string path;  // empty where the note is about no path
    std::string reason;
};

struct RunNotes {
    std::vector<RunNote> leftOut;
    std::vector<RunNote> warnings;
};

// Those of one run; none where it has no document, or a damaged one.
RunNotes loadNotes(const std::string& jobId, const std::string& instanceId);

// "leftOut" and "warnings", each an array of {"path", "reason"}.
void appendNotes(json_spirit::Ordered_object& json, const RunNotes& notes);

// "left out: C:\data\link: a link to another place", "warning: ..."; at most `most` of each kind,
// then how many more there are.
std::vector<std::string> noteLines(const std::vector<RunNote>& notes, const std::string& kind,
                                   size_t most);

struct PastRun {
    std::string instanceId;
    std::string startTime;  // UTC
    std::string endTime;
    uint64_t seconds = 0;  // from its start to its end, pauses included
    std::string state;
    uint64_t files = 0;
    uint64_t totalSize = 0;
    uint64_t bytesPerSecond = 0;
    std::vector<FailedItem> failed;  // their paths with backslashes
    RunNotes notes;
};

// "Access denied (error 5)", and "C:\data\a.txt: Access denied (error 5)".
std::string whyFailed(const FailedItem& item);
std::string failedText(const FailedItem& item);

// [{"path", "code", "reason"}]
json_spirit::Ordered_array failedJson(const std::vector<FailedItem>& items);

// The newest runs first, at most `most`.
std::vector<PastRun> loadRuns(const std::string& jobId, size_t most);

// One run. What is damaged or missing in its document counts as empty.
PastRun loadRun(const std::string& jobId, const std::string& instanceId);
// When the last run that completed ended, in ticks of UTC; 0 for never.
uint64_t lastCompletion(const std::string& jobId);

// The items that failed in one run.
std::vector<FailedItem> loadFailedItems(const std::string& jobId, const std::string& instanceId);

}  // namespace dorvo::agent
