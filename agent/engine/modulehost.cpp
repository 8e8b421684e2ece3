#include "engine/modulehost.h"

#include <mutex>

#include "agenterror.h"
#include "base/logfile.h"
#include "base/paths.h"
#include "base/text.h"
#include "face/jobmodule.h"
#include "failuretext.h"
#include "singletons.h"

namespace dorvo::agent {

ModuleHost::~ModuleHost() {
    if (open_) {
        closeJobModule();
        closeLogFile();
    }
}

void ModuleHost::open(const std::string& jobId) {
    std::wstring directory;
    if (dataDirectory(directory)) {
        openLogFile(directory + L"\\log");
    }
    // Held until the others are locked: the module starts jobs of its own only under this lock.
    std::lock_guard guard(manager().locker());
    if (!openJobModule()) {
        const DWORD error = GetLastError();
        closeLogFile();
        throw AgentError("The job module cannot be opened: " + failureText(error));
    }
    open_ = true;
    for (const Job* job : manager().jobs()) {
        const std::string& id = job->definition().id();
        if (!equalsIgnoreCase(id, jobId)) {
            manager().lockJob(id.c_str());
        }
    }
}

JobManagerImpl& ModuleHost::manager() {
    return singleton<JobManagerImpl>();
}

}  // namespace dorvo::agent
