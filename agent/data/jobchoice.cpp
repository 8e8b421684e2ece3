#include "data/jobchoice.h"

#include <windows.h>

#include <algorithm>
#include <string_view>

#include "base/text.h"
#include "base/uuid.h"
#include "data/givenpaths.h"
#include "data/schedules.h"
#include "text/agenterror.h"
#include "text/format.h"

namespace dorvo::agent {
namespace {

const BackupJobDefinition* asBackup(const std::unique_ptr<JobDefinition>& job,
                                    const std::string& user) {
    const auto* const backup = dynamic_cast<const BackupJobDefinition*>(job.get());
    return backup != nullptr && backup->user() == user ? backup : nullptr;
}

std::vector<std::wstring> comparable(std::vector<std::wstring> paths) {
    for (std::wstring& path : paths) {
        path = upperCase(path);
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

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

bool hasOnly(const std::wstring& text, WORD kind) {
    std::vector<WORD> kinds(text.size());
    return GetStringTypeW(CT_CTYPE1, text.data(), static_cast<int>(text.size()), kinds.data()) !=
               0 &&
           std::all_of(kinds.begin(), kinds.end(), [&](WORD k) { return (k & kind) != 0; });
}

[[noreturn]] void refuse(const std::string& why) {
    throw AgentError(why, exitUsage);
}

std::string shown(const std::wstring& text) {
    return printable(toUtf8(text));
}

std::string placeText(const BackupJobDefinition& job) {
    return job.storage() == StorageKind::local ? "in " + shown(job.location()) : "at the server";
}

std::string filterText(const BackupJobDefinition& job) {
    std::string list;
    for (const std::wstring& extension : job.extensions()) {
        list += (list.empty() ? "" : ", ") + shown(extension);
    }
    switch (job.filterType()) {
        case BackupJobDefinition::extensionsOnly: return "only files with the extensions " + list;
        case BackupJobDefinition::extensionsLeftOut:
            return "all files but those with the extensions " + list;
        default: return "all files";
    }
}

// The paths that the first has and the second has not.
std::vector<std::wstring> without(const std::vector<std::wstring>& paths,
                                  const std::vector<std::wstring>& others) {
    std::vector<std::wstring> left;
    std::copy_if(paths.begin(), paths.end(), std::back_inserter(left), [&](const auto& path) {
        return std::none_of(others.begin(), others.end(),
                            [&](const auto& other) { return samePath(path, other); });
    });
    return left;
}

}  // namespace

bool samePaths(const std::vector<std::wstring>& a, const std::vector<std::wstring>& b) {
    return comparable(a) == comparable(b);
}

const BackupJobDefinition* findBackup(const JobList& jobs, const std::string& user,
                                      const std::wstring& name) {
    for (const auto& job : jobs) {
        const auto* const backup = asBackup(job, user);
        if (backup != nullptr && samePath(backup->name(), name)) {
            return backup;
        }
    }
    return nullptr;
}

const BackupJobDefinition* findBackup(const JobList& jobs, const std::string& user,
                                      const std::vector<std::wstring>& sources,
                                      const std::wstring& location) {
    for (const auto& job : jobs) {
        const auto* const backup = asBackup(job, user);
        if (backup != nullptr && samePaths(backup->source(), sources) &&
            samePath(backup->location(), location)) {
            return backup;
        }
    }
    return nullptr;
}

std::wstring freeName(const JobList& jobs, const std::wstring& wanted) {
    std::wstring name = wanted;
    const auto taken = [&](const auto& job) { return samePath(job->name(), name); };
    for (int number = 2; std::any_of(jobs.begin(), jobs.end(), taken); ++number) {
        name = wanted + L" (" + std::to_wstring(number) + L")";
    }
    return name;
}

std::string newJobId() {
    GUID id;
    if (createUuid(id) != 0) {
        throw AgentError("No id for the job could be made");
    }
    return uuidText(id);
}

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

void requireNewName(const JobList& jobs, const std::wstring& name) {
    if (name.size() > longestJobName) {
        refuse("A job's name has at most " + std::to_string(longestJobName) + " characters, not " +
               std::to_string(name.size()));
    }
    if (hasOnly(name, C1_SPACE | C1_BLANK)) {
        refuse("A job's name cannot be blank");
    }
    const std::string text = toUtf8(name);
    if (printable(text) != text) {
        refuse("A job's name cannot have control characters in it: '" + printable(text) + "'");
    }
    for (const auto& job : jobs) {
        if (equalsIgnoreCase(job->id(), text)) {
            refuse("'" + text + "' is the id of the job '" + shown(job->name()) +
                   "': a name of its own would be taken for it");
        }
        if (samePath(job->name(), name)) {
            refuse("There is a " +
                   std::string(job->type() == JobDefinition::restoreType ? "restore " : "") +
                   "job '" + shown(job->name()) + "' of the user '" + job->user() +
                   "' already: choose another name");
        }
    }
}

std::vector<std::string> changesOf(const BackupJobDefinition& known,
                                   const BackupJobDefinition& changed) {
    std::vector<std::string> lines;
    const std::string job = "The job '" + shown(known.name()) + "' ";
    const auto say = [&](const std::string& what, const std::string& before,
                         const std::string& after) {
        if (before != after) {
            lines.push_back(job + what + " " + after + ", no longer " + before + ".");
        }
    };
    for (const std::wstring& path : without(known.source(), changed.source())) {
        lines.push_back(job + "no longer backs up " + shown(path) + ".");
    }
    for (const std::wstring& path : without(changed.source(), known.source())) {
        lines.push_back(job + "now backs up " + shown(path) + ".");
    }
    say("now takes", filterText(known), filterText(changed));
    if (known.compress() != changed.compress()) {
        lines.push_back(job + (changed.compress() ? "now" : "no longer") + " compresses files.");
    }
    say("now keeps its backups", placeText(known), placeText(changed));
    say("now runs", scheduleText(known.schedule()), scheduleText(changed.schedule()));
    return lines;
}

}  // namespace dorvo::agent
