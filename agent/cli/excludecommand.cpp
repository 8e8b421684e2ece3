#include "cli/excludecommand.h"

#include "base/text.h"
#include "data/dataaccess.h"
#include "data/excludedpaths.h"
#include "data/jobstore.h"
#include "data/sourcepath.h"
#include "json_spirit/json_spirit.h"
#include "text/agenterror.h"
#include "text/failuretext.h"

namespace dorvo::agent {

CLI::App* ExcludeCommand::describe(CLI::App& parent) {
    CLI::App* const exclude =
        parent.add_subcommand("exclude", "Choose paths that backups leave out");
    exclude->require_subcommand(1);
    add_ = exclude->add_subcommand("add", "Leave out a path and what lies below it");
    CLI::App* const remove = exclude->add_subcommand("remove", "Back up a path again");
    list_ = exclude->add_subcommand("list", "List the paths");
    for (CLI::App* const command : {add_, remove}) {
        command->add_option("PATH", path_, "The file or folder")->required();
    }
    for (CLI::App* const command : {add_, remove, list_}) {
        command->add_option("--job", job_, "Of this job only: its name or id");
    }
    const char* const example =
        "Example:\n  agent exclude add C:\\Users\\alice\\Downloads --job docs";
    exclude->footer(example);
    add_->footer(example);
    remove->footer("Example:\n  agent exclude remove C:\\Users\\alice\\Downloads --job docs");
    list_->footer("Example:\n  agent exclude list --json");
    list_->add_flag("--json", json_, "One JSON document");
    return exclude;
}

int ExcludeCommand::run(Terminal& terminal) {
    requireDataAccess();
    return list_->parsed() ? list(terminal) : change(terminal);
}

int ExcludeCommand::change(Terminal& terminal) const {
    const std::string name = listName();
    const std::string path = toUtf8(onDiskPath(toWide(path_), false));
    ExclusionList exclusions;
    requireSound(exclusions);
    const bool changed = add_->parsed() ? exclusions.addPath(name.c_str(), path.c_str())
                                        : exclusions.removePath(name.c_str(), path.c_str());
    if (!changed) {
        throw AgentError(
            add_->parsed() ? "'" + exclusions.path() + "' holds no list under '" + name +
                                 "': mend or delete the file"
                           : "'" + path + "' is not excluded: 'agent exclude list' shows what is");
    }
    if (!exclusions.save()) {
        throw AgentError("The exclusion list could not be saved: " + failureText(GetLastError()));
    }
    terminal.out("'" + path + "' is " + (add_->parsed() ? "" : "no longer ") + "excluded.");
    return exitDone;
}

int ExcludeCommand::list(Terminal& terminal) const {
    const std::vector<std::string> paths = excludedPaths(listName());
    if (json_) {
        const json_spirit::Ordered_array array(paths.begin(), paths.end());
        terminal.out(json_spirit::write_formatted(json_spirit::Ordered_value(array)));
        return exitDone;
    }
    for (const std::string& path : paths) {
        terminal.out(path);
    }
    if (paths.empty()) {
        terminal.out("No paths are excluded.");
    }
    return exitDone;
}

std::string ExcludeCommand::listName() const {
    return job_.empty() ? everyJobList : findBackupJob(loadJobs(), job_).id();
}

}  // namespace dorvo::agent
