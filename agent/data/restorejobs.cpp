#include "data/restorejobs.h"

#include "base/text.h"
#include "data/sourcepath.h"
#include "text/agenterror.h"

namespace dorvo::agent {
namespace {

struct ConflictName {
    const char* text;
    int32_t value;
};

constexpr ConflictName conflicts[] = {{"keep", RestoreJobDefinition::conflictKeep},
                                      {"rename", RestoreJobDefinition::conflictRename},
                                      {"overwrite", RestoreJobDefinition::conflictOverwrite}};

// What makes two restores the same but for the run and the rule.
bool sameRestore(const RestoreJobDefinition& a, const RestoreJobDefinition& b) {
    return a.user() == b.user() && a.storage() == b.storage() &&
           samePath(a.location(), b.location()) && a.machine() == b.machine() &&
           equalsIgnoreCase(a.jobDefinitionId(), b.jobDefinitionId()) &&
           samePaths(a.source(), b.source()) && samePath(a.target(), b.target()) &&
           samePath(a.prefix(), b.prefix());
}

bool sameSettings(const RestoreJobDefinition& a, const RestoreJobDefinition& b) {
    return equalsIgnoreCase(a.jobInstanceId(), b.jobInstanceId()) && a.conflict() == b.conflict();
}

}  // namespace

int32_t conflictOf(const std::string& text) {
    for (const ConflictName& name : conflicts) {
        if (text == name.text) {
            return name.value;
        }
    }
    throw AgentError("'" + text + "' is no conflict rule", exitUsage);
}

std::string conflictText(int32_t conflict) {
    for (const ConflictName& name : conflicts) {
        if (conflict == name.value) {
            return name.text;
        }
    }
    return conflictText(RestoreJobDefinition::conflictOverwrite);
}

std::wstring nameOfRestore(const RestoreJobDefinition& job, const std::wstring& backupName) {
    std::wstring name =
        L"restore " + (job.source().empty() ? backupName : nameOfSources(job.source()));
    if (!job.target().empty()) {
        name += L" to " + job.target();
        name.pop_back();
    }
    return name;
}

const RestoreJobDefinition* findRestore(const JobList& jobs, const RestoreJobDefinition& wanted,
                                        const std::function<bool(const std::string& id)>& busy) {
    const RestoreJobDefinition* free = nullptr;
    for (const auto& job : jobs) {
        const auto* const restore = dynamic_cast<const RestoreJobDefinition*>(job.get());
        if (restore == nullptr || !sameRestore(*restore, wanted)) {
            continue;
        }
        if (sameSettings(*restore, wanted)) {
            return restore;
        }
        if (free == nullptr && !busy(restore->id())) {
            free = restore;
        }
    }
    return free;
}

}  // namespace dorvo::agent
