#include "data/jobstore.h"

#include <windows.h>

#include <algorithm>

#include "base/paths.h"
#include "base/text.h"
#include "data/givenpaths.h"
#include "data/users.h"
#include "job/jobdirectories.h"
#include "text/agenterror.h"
#include "text/failuretext.h"

namespace dorvo::agent {
namespace {

// Why no definition was loaded, by the last error; nothing where there is none to load, as in a
// directory that is just being made or removed.
std::optional<std::string> whyUnread(DWORD error) {
    switch (error) {
        case ERROR_FILE_NOT_FOUND:
        case ERROR_PATH_NOT_FOUND: return std::nullopt;
        case ERROR_NOT_SUPPORTED:
            return "its definition is of a later version; this one leaves it as it is";
        case ERROR_INVALID_DATA:
            return "its definition is damaged, and the next start of the agent deletes it: put it "
                   "back from a copy";
        case ERROR_DUP_NAME: return "its definition is that of a job with another id";
        default: return "its definition cannot be read: " + failureText(error);
    }
}

}  // namespace

std::vector<std::string> jobIds() {
    requireDataAccess();
    std::vector<std::string> ids;
    for (const std::wstring& directory : jobDirectories()) {
        std::string name = toUtf8(directory.substr(directory.rfind(L'\\') + 1));
        if (isJobId(name)) {
            ids.push_back(std::move(name));
        }
    }
    return ids;
}

std::unique_ptr<JobDefinition> loadJob(const std::string& id) {
    std::wstring directory;
    if (!jobDirectory(id, directory)) {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return nullptr;
    }
    std::unique_ptr<JobDefinition> job = readDefinition(directory);
    // Everything of a job is found by its id: a copied directory is none of its.
    if (job && !equalsIgnoreCase(job->id(), id)) {
        job.reset();
        SetLastError(ERROR_DUP_NAME);
    }
    return job;
}

std::optional<UnreadJob> findUnread(const std::string& id) {
    for (const std::string& known : jobIds()) {
        if (equalsIgnoreCase(known, id) && !loadJob(known)) {
            if (const auto why = whyUnread(GetLastError())) {
                return UnreadJob{known, *why};
            }
        }
    }
    return std::nullopt;
}

bool hasJob(const std::string& id) {
    std::wstring directory;
    return jobDirectory(id, directory) &&
           GetFileAttributesW(longPath(directory + L"\\def").c_str()) != INVALID_FILE_ATTRIBUTES;
}

bool hasJobDirectory(const std::string& id) {
    std::wstring directory;
    return jobDirectory(id, directory) &&
           GetFileAttributesW(longPath(directory).c_str()) != INVALID_FILE_ATTRIBUTES;
}

JobList loadJobs(std::vector<UnreadJob>* unread) {
    JobList jobs;
    for (const std::string& id : jobIds()) {
        if (auto job = loadJob(id)) {
            jobs.push_back(std::move(job));
        } else if (const auto why = whyUnread(GetLastError()); why && unread != nullptr) {
            unread->push_back({id, *why});
        }
    }
    std::sort(jobs.begin(), jobs.end(), [](const auto& a, const auto& b) {
        const std::wstring nameA = upperCase(a->name());
        const std::wstring nameB = upperCase(b->name());
        return nameA != nameB ? nameA < nameB : a->id() < b->id();
    });
    return jobs;
}

const JobDefinition& findJob(const JobList& jobs, const std::string& idOrName) {
    const auto byId = std::find_if(jobs.begin(), jobs.end(), [&](const auto& job) {
        return equalsIgnoreCase(job->id(), idOrName);
    });
    if (byId != jobs.end()) {
        return **byId;
    }
    const std::wstring name = toWide(idOrName);
    const JobDefinition* found = nullptr;
    for (const auto& job : jobs) {
        if (!samePath(job->name(), name)) {
            continue;
        }
        if (found != nullptr) {
            throw AgentError("Several jobs are called '" + idOrName +
                             "': use the job's id, which 'agent jobs' shows");
        }
        found = job.get();
    }
    if (found == nullptr) {
        if (const auto unread = findUnread(idOrName)) {
            throw AgentError("The job '" + unread->id + "' cannot be used: " + unread->why);
        }
        throw AgentError("There is no job '" + idOrName + "': 'agent jobs' shows those there are");
    }
    return *found;
}

const JobDefinition& findBackupJob(const JobList& jobs, const std::string& idOrName) {
    const JobDefinition& job = findJob(jobs, idOrName);
    if (job.type() == JobDefinition::restoreType) {
        throw AgentError("The job '" + toUtf8(job.name()) +
                         "' restores: name a backup job, which 'agent jobs' shows");
    }
    return job;
}

}  // namespace dorvo::agent
