#include "engine/modulehost.h"

#include <algorithm>
#include <mutex>

#include "base/logfile.h"
#include "base/paths.h"
#include "base/text.h"
#include "text/agenterror.h"
#include "text/failuretext.h"
#include "text/singletons.h"

namespace dorvo::agent {

ModuleHost::~ModuleHost() {
    if (open_) {
        closeJobModule();
        closeLogFile();
    }
}

void ModuleHost::open(DueTimes dueTimes) {
    std::wstring directory;
    if (dataDirectory(directory)) {
        openLogFile(directory + L"\\log");
        logProgress(options().logProgress());
    }
    if (!openJobModule(dueTimes)) {
        const DWORD error = GetLastError();
        closeLogFile();
        throw AgentError("The job module cannot be opened: " + failureText(error));
    }
    open_ = true;
}

void ModuleHost::open(const std::string& jobId) {
    // Held until the others are locked: the module starts jobs of its own only under this lock.
    std::lock_guard guard(manager().locker());
    if (!open_) {
        open(DueTimes::left);
    }
    unlocked_.push_back(jobId);
    manager().lockAllJobs(false);
    for (const Job* job : manager().jobs()) {
        const std::string& id = job->definition().id();
        if (std::none_of(unlocked_.begin(), unlocked_.end(), [&](const std::string& unlocked) {
                return equalsIgnoreCase(id, unlocked);
            })) {
            manager().lockJob(id.c_str());
        }
    }
}

JobManagerImpl& ModuleHost::manager() {
    return singleton<JobManagerImpl>();
}

}  // namespace dorvo::agent
