#include "jobrun.h"

#include <array>

#include "agenterror.h"
#include "base/paths.h"
#include "base/text.h"
#include "base/uuid.h"
#include "engine/modulehost.h"
#include "interrupt.h"
#include "job/runtotals.h"
#include "runevents.h"
#include "runhistory.h"
#include "runoutcome.h"
#include "runreporter.h"
#include "runsummary.h"

namespace dorvo::agent {
namespace {

constexpr DWORD redrawMs = 500;

std::string instanceOf(const JobActivity& record) {
    GUID id;
    static_assert(sizeof(id) == sizeof(record.instanceId));
    std::memcpy(&id, record.instanceId.data(), sizeof(id));
    return uuidText(id);
}

uint32_t walkedFiles(const std::string& id) {
    std::wstring directory;
    SourceTotals totals;
    return jobDirectory(id, directory) && loadRunTotals(directory, totals) ? totals.files : 0;
}

}  // namespace

int runJob(Terminal& terminal, const JobDefinition& job, RunStart start) {
    JobManagerImpl& manager = ModuleHost::manager();
    const std::string& id = job.id();
    const std::string name = toUtf8(job.name());
    const RunWords words = wordsOf(job);
    RunEvents events(id);
    const Interrupt interrupt;
    const bool started =
        start == RunStart::fresh ? manager.startJob(id.c_str()) : manager.resumeJob(id.c_str());
    JobActivityHandle record;
    if (!started || !record.open(id.c_str(), false)) {
        throw AgentError("The job '" + name + "' could not be started: the log file says why");
    }
    RunReporter reporter(terminal, words);
    const std::array<HANDLE, 2> wakers = {events.event(), interrupt.event()};
    std::optional<ExitCode> outcome;
    JobActivity now{};
    for (;;) {
        if (std::string reason = events.takeReason(); !reason.empty()) {
            reporter.reason(std::move(reason));
        }
        now = *record.get();
        outcome = outcomeOf(now);
        if (outcome) {
            break;
        }
        reporter.show(now, GetTickCount64());
        const DWORD woken = WaitForMultipleObjects(static_cast<DWORD>(wakers.size()), wakers.data(),
                                                   FALSE, redrawMs);
        if (woken == WAIT_OBJECT_0 + 1) {
            manager.pauseJob(id.c_str());
        }
    }
    terminal.status({});
    if (*outcome == exitDone && now.startTime == 0) {
        // The system made no thread: the record still says how the former run ended.
        throw AgentError("The job '" + name + "' did not run: the log file says why");
    }
    for (const FailedItem& item : loadFailedItems(id, instanceOf(now))) {
        terminal.error("failed: " + item.text());
    }
    const std::string summary = runSummary(words, name, *outcome, now, walkedFiles(id));
    *outcome == exitFailed ? terminal.error("agent: " + summary) : terminal.out(summary);
    return *outcome;
}

}  // namespace dorvo::agent
