// What the errors of calls into the folder of local backups mean to a run.
#pragma once

#include <windows.h>

#include <string>

namespace dorvo {

// A job that meets this code pauses, and resumes by itself.
constexpr DWORD errorLocationGone = WSAESTALE;
// The instance is not in a state for what was asked.
constexpr DWORD errorInstanceState = ERROR_INVALID_STATE;

// After any failure: the last error becomes 10070 while the location is gone. 1223 stays. Always
// false.
bool failedNear(const std::wstring& location);

// After a failed call on a file in the location: 10070 also when its disk is full, or the share or
// the device was lost, for all of these pass when the user sees to them. Says so in the log. Always
// false.
bool failedIn(const std::wstring& location);

// The same where a file was to be replaced: 10070 also when somebody else has it open, a scanner or
// a copier, who lets go of it again.
bool failedToReplace(const std::wstring& location);

// After a failed call on a run that is not completed: 5023 when the bytes themselves are wrong, for
// it will never be whole. What the disk could not read now (ERROR_CRC) it may read another time.
// Always false.
bool failedUnfinished();

// The location is an empty folder in which backups lay: 10070, for its disk may come back. To who
// wants to write there the log says how to begin anew in it, by a file of the name `mark`. Always
// false.
bool failedAway(const std::wstring& location, const std::string& mark = {});

// What was to be read is damaged, and will stay so.
bool isDamage(DWORD error);

// Logs "Failed to <action> {<subject>}, error-code = ..." with the last error, which stays. Always
// false.
bool logFailure(const char* action, const std::string& subject);

}  // namespace dorvo
