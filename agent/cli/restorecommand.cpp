// The command that brings files and folders back from a backup.
#include "cli/commands.h"

#include <windows.h>

#include <memory>
#include <string>
#include <vector>

#include "base/paths.h"
#include "base/text.h"
#include "cli/instancequery.h"
#include "control/openengine.h"
#include "data/backupplace.h"
#include "data/givenpaths.h"
#include "data/jobchoice.h"
#include "data/jobstore.h"
#include "data/runrecord.h"
#include "data/users.h"
#include "jobdef/restorejobdefinition.h"
#include "run/jobrun.h"
#include "text/agenterror.h"
#include "text/format.h"

namespace dorvo::agent {
namespace {

std::wstring backupName(const JobList& jobs, const StoredInstance& run) {
    for (const auto& job : jobs) {
        if (equalsIgnoreCase(job->id(), run.jobDefinitionId)) {
            return job->name();
        }
    }
    return toWide(printable(run.machine));
}

// The longest beginning of a full path that is there, as far as its root; empty when not even that.
std::wstring existingPart(std::wstring path) {
    while (GetFileAttributesW(longPath(path).c_str()) == INVALID_FILE_ATTRIBUTES) {
        if (isVolumeRoot(path)) {
            return {};
        }
        path.resize(path.rfind(L'\\'));
        if (isVolumeRoot(path)) {
            path += L'\\';
        }
    }
    return path;
}

// The folder of --to for a definition: absolute, with a backslash at its end, since a job puts
// nothing between it and what follows. It need not exist, its drive or share must. Throws
// AgentError (wrong usage).
std::wstring targetFolder(const std::string& to) {
    std::wstring folder = absolutePath(toWide(to));
    if (folder.empty()) {
        throw AgentError("'" + to + "' is no path of a folder", exitUsage);
    }
    const std::wstring there = existingPart(folder);
    if (there.empty()) {
        throw AgentError("The drive or share of '" + to +
                             "' is not there: --to takes a folder on "
                             "one that is",
                         exitUsage);
    }
    if ((GetFileAttributesW(longPath(there).c_str()) & FILE_ATTRIBUTE_DIRECTORY) == 0) {
        throw AgentError("'" + toUtf8(there) + "' is a file: --to takes a folder", exitUsage);
    }
    if (folder.back() != L'\\') {
        folder += L'\\';
    }
    return folder;
}

// agent restore INSTANCE [PATH...]: defines the restore job of these arguments, or finds the one
// there is, and runs it.
//
// A job restores what it did from the same backup job to the same place: another run or another
// conflict rule makes no new job, unless it has a run to go on with.
class RestoreCommand : public Command {
public:
    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;

private:
    // What is to be brought back, as the backup spells it.
    struct Selection {
        std::vector<std::wstring> paths;  // empty: everything
        std::wstring prefix;
    };

    Selection select(const BackupPlace& place, const StoredInstance& run) const;
    std::unique_ptr<RestoreJobDefinition> define(const BackupPlace& place,
                                                 const StoredInstance& run,
                                                 const Selection& selection,
                                                 const std::wstring& target) const;

    InstanceQuery query_;
    std::vector<std::string> paths_;
    std::string to_;
    std::string prefix_;
    std::string conflict_;
    RunFlags flags_;
};

CLI::App* RestoreCommand::describe(CLI::App& parent) {
    CLI::App* const restore =
        parent.add_subcommand("restore", "Bring files and folders back from a backup");
    query_.describe(*restore);
    restore->add_option("PATH", paths_, "Files and folders as they were backed up; without, all");
    auto* const to =
        restore->add_option("--to", to_, "The folder to restore into; without, where they were")
            ->type_name("DIR");
    restore
        ->add_option("--prefix", prefix_,
                     "The part of the paths that DIR stands for; without, a drive becomes a folder")
        ->needs(to);
    restore->add_option("--conflict", conflict_, "What becomes of a file that is there")
        ->check(CLI::IsMember({"keep", "rename", "overwrite"}))
        ->default_str("keep");
    flags_.describe(*restore);
    restore->footer(
        "C:\\data\\a.txt goes to D:\\copy\\C\\data\\a.txt with --to D:\\copy, and to "
        "D:\\copy\\a.txt with --prefix C:\\data besides.\n"
        "Ctrl+C pauses the run; 'agent resume JOB' goes on with it.\n"
        "Example:\n  agent restore latest C:\\Users\\alice --job docs --to D:\\copy");
    return restore;
}

int RestoreCommand::run(Terminal& terminal) {
    const std::wstring target = to_.empty() ? std::wstring() : targetFolder(to_);
    const BackupPlace place(query_.local, query_.user);
    const StoredInstance run = query_.choose(place);
    const Selection selection = select(place, run);
    const auto engine = openEngine();
    flags_.check(*engine);
    const JobList jobs = loadJobs();
    auto job = define(place, run, selection, target);
    bool goesOn = false;
    const RestoreJobDefinition* const known = findRestore(jobs, *job, hasUnfinishedRun);
    if (known != nullptr) {
        goesOn = hasUnfinishedRun(known->id());
        auto renewed = std::make_unique<RestoreJobDefinition>(*known);
        renewed->setOrigin(job->machine(), job->jobDefinitionId(), job->jobInstanceId());
        renewed->setConflict(job->conflict());
        job = std::move(renewed);
    } else {
        job->setName(freeName(jobs, nameOfRestore(*job, backupName(jobs, run))));
    }
    if (goesOn && !flags_.json) {
        terminal.out("Going on with the unfinished run of job '" + toUtf8(job->name()) + "'.");
    }
    if (to_.empty() && conflict_.empty() && !flags_.json) {
        terminal.warn(
            "Warning: What is there is kept as it is: --conflict overwrite replaces it, --to DIR "
            "restores beside it.");
    }
    const bool changed = known == nullptr || known->text() != job->text();
    return runJob(
        *engine, terminal, *job, [&] { startRun(*engine, *job, changed); }, flags_);
}

RestoreCommand::Selection RestoreCommand::select(const BackupPlace& place,
                                                 const StoredInstance& run) const {
    Selection selection;
    const auto catalog = place.catalog(run);
    const auto find = [&](const std::string& given) { return place.find(*catalog, run, given); };
    HeldPath prefix;
    if (!prefix_.empty()) {
        prefix = find(prefix_);
        if (!prefix.folder) {
            throw AgentError("'" + prefix_ + "' is a file: --prefix takes a folder of the backup",
                             exitUsage);
        }
        selection.prefix = prefix.path;
    }
    for (const std::string& given : paths_) {
        const HeldPath held = find(given);
        if (!prefix_.empty() && held.path != prefix.path && !isBelow(held.path, prefix.path)) {
            throw AgentError("'" + given + "' does not lie below the prefix '" + prefix_ + "'",
                             exitUsage);
        }
        selection.paths.push_back(held.path);
    }
    if (paths_.empty() && !prefix_.empty()) {
        selection.paths.push_back(prefix.path);  // nothing else has a place in the folder
    }
    selection.paths = withoutNested(selection.paths);
    return selection;
}

std::unique_ptr<RestoreJobDefinition> RestoreCommand::define(const BackupPlace& place,
                                                             const StoredInstance& run,
                                                             const Selection& selection,
                                                             const std::wstring& target) const {
    std::string user = place.user();
    if (user.empty()) {
        user = run.user.empty() ? chooseKeyOwner({}) : run.user;
    }
    auto job = std::make_unique<RestoreJobDefinition>(newJobId(), std::wstring(), user);
    place.assignTo(*job);
    job->setOrigin(run.machine, run.jobDefinitionId, run.jobInstanceId);
    job->setSource(selection.paths);
    job->setTarget(target, selection.prefix);
    job->setConflict(conflictOf(conflict_.empty() ? "keep" : conflict_));
    return job;
}

}  // namespace

std::unique_ptr<Command> restoreCommand() {
    return std::make_unique<RestoreCommand>();
}

}  // namespace dorvo::agent
