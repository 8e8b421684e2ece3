#include "data/jobname.h"

#include <windows.h>

#include <algorithm>
#include <string_view>

#include "base/text.h"
#include "data/scheduletext.h"
#include "data/sourcepath.h"
#include "text/agenterror.h"
#include "text/printable.h"

namespace dorvo::agent {
namespace {

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
        case 1: return "only files with the extensions " + list;
        case 2: return "all files but those with the extensions " + list;
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
