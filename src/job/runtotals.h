// Sums of a run, as files of one form in <job directory>\act.
//
// "totals": what the walk of the current run counted. It is written after the source list and
// removed before a new one is made, so that a list with totals is whole and of this run.
//
// "failed": what of that list has failed, written when a run ends or pauses; a run in which nothing
// failed has none.
#pragma once

#include <string>
#include <vector>

#include "base/api.h"
#include "storage/items.h"

namespace dorvo {

bool saveRunTotals(const std::wstring& jobDirectory, const SourceTotals& totals);
// False with the last error when there is none or it makes no sense (ERROR_INVALID_DATA).
DORVO_JOB_API bool loadRunTotals(const std::wstring& jobDirectory, SourceTotals& totals);
// True when there is none afterwards.
bool removeRunTotals(const std::wstring& jobDirectory);

// Counts the items of the list that stand among the failed ones, each once, and keeps the sums.
bool countFailedTotals(const std::wstring& jobDirectory, const std::wstring& list,
                       const std::vector<FailedItem>& failed);
// Zeroes when nothing of the list failed.
DORVO_JOB_API SourceTotals loadFailedTotals(const std::wstring& jobDirectory);

}  // namespace dorvo
