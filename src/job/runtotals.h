// <job directory>\act\totals: what the walk of the current run counted. It is written after the
// source list and removed before a new one is made, so that a list with totals is whole and of this
// run.
#pragma once

#include <string>

#include "base/api.h"
#include "storage/request_bodies.h"

namespace dorvo {

bool saveRunTotals(const std::wstring& jobDirectory, const SourceTotals& totals);
// False when there is none or it makes no sense.
DORVO_JOB_API bool loadRunTotals(const std::wstring& jobDirectory, SourceTotals& totals);
// True when there is none afterwards.
bool removeRunTotals(const std::wstring& jobDirectory);

}  // namespace dorvo
