// The folder "hist" of a job directory: two documents a run, or three, and beside that of the
// failed items what has still to go into it.
//
// Paths are UTF-16 without a trailing backslash.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "base/api.h"

namespace dorvo {

constexpr size_t keptRuns = 100;

// <job directory>\hist\<instance id>, the same with ".errors" and with ".notes"; empty for an id
// that is no file name.
DORVO_JOB_API std::wstring jobHistoryInfoPath(const std::wstring& jobDirectory,
                                              const std::string& instanceId);
DORVO_JOB_API std::wstring jobHistoryErrorPath(const std::wstring& jobDirectory,
                                               const std::string& instanceId);
DORVO_JOB_API std::wstring jobHistoryNotesPath(const std::wstring& jobDirectory,
                                               const std::string& instanceId);

// What is appended to the path of the failed items' document for the journal of what it lacks.
constexpr std::wstring_view journalSuffix = L".journal";

// Removes the oldest runs, all documents of each, so that at most `keep` are left. A run is as old
// as the newest of its documents' write times; the `current` one is never removed, whatever the
// clock has been. False when something could not be removed.
DORVO_JOB_API bool trimJobHistory(const std::wstring& jobDirectory, const std::string& current,
                                  size_t keep = keptRuns);

}  // namespace dorvo
