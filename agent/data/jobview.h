// A job as listings show it: its definition, its activity record and its history.
#pragma once

#include <string>
#include <vector>

#include "data/jobstore.h"
#include "data/runhistory.h"
#include "data/runrecord.h"
#include "jobdef/jobdefinition.h"
#include "json_spirit/json_spirit.h"
#include "record/jobactivity.h"

namespace dorvo::agent {

constexpr const char* unreadState = "unreadable";  // of an UnreadJob

struct JobView {
    const JobDefinition* job = nullptr;  // borrowed
    bool recorded = false;               // false: the job has no record that can be read
    bool live = false;                   // a process has the job loaded
    JobActivity record{};
    uint64_t nextRun = 0;        // ticks of UTC, 0 for none
    uint64_t lastCompleted = 0;  // the same
    RunWait wait{};              // of a run that does not go on; without a reason else
    bool overdue = false;        // it has not completed for longer than its schedule promises
};

JobView viewOf(const JobDefinition& job);

// The state's text; "interrupted" for a run under way whose process has ended.
std::string stateText(const JobView& view);

// "Job 'docs' is overdue: ...", empty when it is not.
std::string overdueText(const JobView& view);

// "Job 'docs' waits since ...: ...; it goes on at ...", empty for one that does not wait by itself.
std::string waitText(const JobView& view);

// "Job '<id>' does not run: its definition ...".
std::string unreadText(const UnreadJob& job);

// As of a job, with what is known: state "unreadable", and "reason".
json_spirit::Ordered_object unreadJson(const UnreadJob& job);

// {"id", "name", "user", "type", "storage", "state", "nextRun", "lastCompleted", "overdue",
// "live"}, of an unfinished run also "progress", "files", "fileCount", "bytes", "totalBytes",
// "speed", "remainTime", "file", and of one that waits "reason", "since", "until".
json_spirit::Ordered_object summaryJson(const JobView& view);

// The same and "location", the folder or the server's address; of a backup "source", "filter",
// "extensions", "compress", "schedule"; of a restore "source", "machine", "jobdefinitionid",
// "jobinstanceid", "target", "prefix", "conflict"; and "runs".
json_spirit::Ordered_object detailJson(const JobView& view, const std::vector<PastRun>& runs);

// The same for people, several lines.
std::string detailText(const JobView& view, const std::vector<PastRun>& runs);

}  // namespace dorvo::agent
