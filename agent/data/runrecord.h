// A run as its job's record tells of it, whoever runs the job: whether it goes on and what it ends
// a command with, how far it is, why it waits.
//
// The copy that the job's process shares tells that there is such a process; what it says comes
// from the file, which only the data directory's owner can write. Times are ticks of UTC, 0 for not
// known.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "jobdef/jobdefinition.h"
#include "json_spirit/json_spirit.h"
#include "record/jobactivity.h"
#include "text/agenterror.h"

namespace dorvo::agent {

enum class RecordLook {
    mapped,  // by the process that has the job
    onDisk,  // no process has the job; the file's
    none,    // there is none that can be read
};

// Copies it; `record` stays for `none`.
RecordLook lookAtRecord(const std::string& jobId, JobActivity& record);

// The id of the run that the record tells of.
std::string instanceIdOf(const JobActivity& record);

// Nothing while the run goes on. A run that has paused itself goes on: it resumes by itself.
std::optional<ExitCode> outcomeOf(const JobActivity& record);

// True while the run has paused itself and waits for the server.
bool waitsForServer(const JobActivity& record);

// True while a run is under way or has paused itself, and its end can be waited for.
bool runsOrWaits(const JobActivity& record);

// True for a run that can be gone on with: paused, or under way when its process ended.
bool unfinished(const JobActivity& record);

// How far a run is.
struct Progress {
    int percent = 0;
    uint64_t files = 0;  // finished
    uint64_t fileCount = 0;
    uint64_t bytes = 0;  // finished, what is done of the current file included
    uint64_t totalBytes = 0;
    uint64_t bytesPerSecond = 0;
    std::optional<uint64_t> secondsLeft;  // not known before anything has moved
    std::string file;                     // the current one, UTF-8

    bool operator==(const Progress&) const = default;
};

Progress progressOf(const JobActivity& record);

// A number, or null where it is not known.
json_spirit::Ordered_value secondsLeftJson(const Progress& progress);

// " 42%  12/120 files  1.2 MiB of 3.4 GiB  12.3 MiB/s  0:42 left  C:\data\...\name.txt", at most
// `width` columns, of which the current file gets what is left over.
std::string progressLine(const Progress& progress, size_t width);

// What the job's run has met, and what to do: in the service's words where it has said anything.
std::string whyOf(const JobDefinition& job, uint32_t code);

// Why a run does not go on, since when and until when.
struct RunWait {
    std::string reason;  // empty: it goes on
    uint64_t since = 0;
    uint64_t until = 0;
};

// Of a run that is paused, interrupted, or waits for a long answer. `live` says whether a process
// has the job.
RunWait waitOf(const JobDefinition& job, const JobActivity& record, bool live);

// When the job's paused run goes on by itself, where that lies ahead.
uint64_t waitsUntil(const std::string& jobId);

// True while the run goes on, but only its service can tell how long it takes.
bool awaitsAnswer(const JobActivity& record);

// "since ...: no way; it goes on by itself at ...".
std::string waitWords(const RunWait& wait);

// "reason", "since", "until".
void appendWait(json_spirit::Ordered_object& json, const RunWait& wait);

// Whether the job has a run to go on with.
bool hasUnfinishedRun(const std::string& jobId);

}  // namespace dorvo::agent
