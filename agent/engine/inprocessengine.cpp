#include "engine/inprocessengine.h"

#include <mutex>

#include "base/paths.h"
#include "job/statetable.h"
#include "text/agenterror.h"
#include "text/agentlog.h"

namespace dorvo::agent {
namespace {

// The end of what was asked for: the run has ended, or the manager has let go of the job.
bool seenThrough(JobVerb verb, const std::string& id) {
    JobManagerImpl& manager = ModuleHost::manager();
    std::lock_guard guard(manager.locker());
    const Job* const job = manager.job(id.c_str());
    return job == nullptr ||
           (verb == JobVerb::stop && !isUnderWay(static_cast<JobState>(job->state())));
}

bool isThere(const std::string& id) {
    std::wstring directory;
    return jobDirectory(id, directory) &&
           GetFileAttributesW(longPath(directory).c_str()) != INVALID_FILE_ATTRIBUTES;
}

}  // namespace

void InProcessEngine::submit(const JobDefinition& job) {
    host_.open(job.id());
    ModuleEngine::submit(job);
}

void InProcessEngine::tell(JobVerb verb, const std::string& id) {
    host_.open(id);
    // Each change of a state is announced after it has been recorded.
    const KernelHandle changed(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    const auto events = subscribe([&](const std::string&) { SetEvent(changed.get()); });
    ModuleEngine::tell(verb, id);
    if (verb != JobVerb::stop && verb != JobVerb::remove) {
        return;
    }
    while (!seenThrough(verb, id)) {
        WaitForSingleObject(changed.get(), INFINITE);
    }
    if (verb == JobVerb::stop) {
        return;
    }
    ModuleHost::manager().awaitLeft(id);
    if (isThere(id)) {
        throw AgentError("The job's folder could not be deleted whole: " + logSaysWhy());
    }
}

}  // namespace dorvo::agent
