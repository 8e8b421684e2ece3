// The commands that define what is backed up: agent backup, agent exclude.
#include "cli/commands.h"

#include <algorithm>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "base/local_time.h"
#include "base/text.h"
#include "cli/scheduleoptions.h"
#include "control/openengine.h"
#include "data/backupplace.h"
#include "data/givenpaths.h"
#include "data/jobchoice.h"
#include "data/jobstore.h"
#include "data/jobview.h"
#include "data/runrecord.h"
#include "data/schedules.h"
#include "data/users.h"
#include "json_spirit/json_spirit.h"
#include "run/jobrun.h"
#include "source/exclusionlist.h"
#include "source/sourcewalk.h"
#include "storage/wire_time.h"
#include "text/agenterror.h"
#include "text/failuretext.h"
#include "text/format.h"

namespace dorvo::agent {
namespace {

// Throws AgentError for a damaged file, which looks as if it excluded nothing.
void requireSound(const ExclusionList& exclusions) {
    if (exclusions.damaged()) {
        throw AgentError("The exclusion list '" + exclusions.path() +
                         "' is damaged: mend or delete the file");
    }
}

// The paths of one list, with backslashes; none where there is no such list. Throws as above.
std::vector<std::string> excludedPaths(const std::string& list) {
    const ExclusionList exclusions;
    requireSound(exclusions);
    std::vector<std::string> paths;
    json_spirit::Value value;
    if (!exclusions.getList(list.c_str(), value) || value.type() != json_spirit::array_type) {
        return paths;
    }
    for (const json_spirit::Value& entry : value.get_array()) {
        if (entry.type() == json_spirit::str_type) {
            std::string path = entry.get_str();
            std::replace(path.begin(), path.end(), '/', '\\');
            paths.push_back(std::move(path));
        }
    }
    return paths;
}

// The extensions of a definition: each "txt", ".txt" or "*.txt". Throws AgentError (wrong usage)
// for an empty one and for one that is no valid pattern.
std::vector<std::wstring> readExtensions(const std::vector<std::string>& texts) {
    std::vector<std::wstring> extensions;
    for (const std::string& text : texts) {
        // The filter takes the list as parts of an expression and leaves out dots and stars before.
        const size_t begin = text.find_first_not_of(".*");
        if (begin == std::string::npos) {
            throw AgentError("'" + text + "' is no file name extension", exitUsage);
        }
        std::wstring extension = toWide(text);
        try {
            const std::wregex part(L".*(" + extension.substr(begin) + L")$");
        } catch (const std::regex_error&) {
            throw AgentError("'" + text + "' is no file name extension", exitUsage);
        }
        extensions.push_back(std::move(extension));
    }
    return extensions;
}

std::unique_ptr<BackupJobDefinition> copyOf(const BackupJobDefinition& job) {
    return std::make_unique<BackupJobDefinition>(job);
}

// A walk enters no links, so what lies behind one has to be a source of its own.
bool isWalkedWith(const std::wstring& folder, const std::wstring& path) {
    return firstLinkIn(path, folder.ends_with(L'\\') ? folder : folder + L'\\').empty();
}

// A backup that takes in the folder it is kept in would grow without end.
void refuseToBackUpItself(const BackupJobDefinition& job) {
    const auto holds = [&](const std::wstring& path) {
        return samePath(job.location(), path) || isBelow(job.location(), path);
    };
    if (job.storage() != StorageKind::local ||
        std::none_of(job.source().begin(), job.source().end(), holds)) {
        return;
    }
    for (const std::string& list : {std::string(everyJobList), job.id()}) {
        for (const std::string& path : excludedPaths(list)) {
            if (holds(toWide(path))) {
                return;
            }
        }
    }
    const std::string folder = toUtf8(job.location());
    throw AgentError("'" + folder +
                         "' lies in what is to be backed up: keep the backups elsewhere, or leave "
                         "them out with 'agent exclude add \"" +
                         folder + "\"'",
                     exitUsage);
}

// agent backup PATH...: defines the backup job of these paths, or finds the one there is, and runs
// it; or gives it a schedule, or takes it off, and does not run it now.
//
// With --name, the user's job of that name is meant, and its paths become the given ones; without,
// the user's job of exactly these paths that keeps its backups in the same place. So the same
// command line is the same job, and its second run sends only what has changed.
class BackupCommand : public Command {
public:
    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;

private:
    std::unique_ptr<BackupJobDefinition> define(const JobList& jobs, const std::string& user,
                                                const BackupPlace& place) const;
    void setRules(BackupJobDefinition& job) const;
    void sayChanges(Terminal& terminal, const BackupJobDefinition& known,
                    const BackupJobDefinition& changed) const;
    int saySchedule(Terminal& terminal, const BackupJobDefinition& job, bool resident) const;

    std::vector<std::string> paths_;
    std::string name_;
    std::vector<std::string> onlyExtensions_;
    std::vector<std::string> skippedExtensions_;
    bool plain_ = false;
    std::string local_;
    std::string user_;
    ScheduleOptions schedule_;
    RunFlags flags_;
};

CLI::App* BackupCommand::describe(CLI::App& parent) {
    CLI::App* const backup = parent.add_subcommand(
        "backup", "Back up files and folders to the storage server or a folder");
    backup->add_option("PATH", paths_, "Files, folders or drives")->required();
    backup->add_option("--name", name_, "The job's name; without it, the job of these paths");
    auto* const only =
        backup->add_option("--only-ext", onlyExtensions_, "Only files with these extensions");
    auto* const skip =
        backup->add_option("--skip-ext", skippedExtensions_, "No files with these extensions");
    for (auto* const list : {only, skip}) {
        // A list is one argument: the words that follow it are paths.
        list->delimiter(',')
            ->type_name("EXT,..")
            ->expected(1, CLI::detail::expected_max_vector_size)
            ->allow_extra_args(false);
    }
    only->excludes(skip);
    backup->add_flag("--no-compress", plain_, "Encrypt only");
    backup->add_option("--local", local_, "A folder to keep the backups in, in place of the server")
        ->type_name("DIR");
    backup->add_option("--user", user_, "The account, when several have logged in");
    schedule_.describe(*backup);
    flags_.describe(*backup);
    backup->footer(
        "The same paths, or the same name, are the same job: its next run sends only what has "
        "changed.\nCtrl+C pauses the run; 'agent resume JOB' goes on with it.\n"
        "With a schedule the job is saved and not run now; the resident agent starts it.\n"
        "Example:\n  agent backup C:\\Users\\alice --name docs --skip-ext tmp,bak\n"
        "  agent backup C:\\Users\\alice --name docs --weekly mon 22:00");
    return backup;
}

int BackupCommand::run(Terminal& terminal) {
    const BackupPlace place(local_, user_);
    const std::string user = place.local() ? chooseKeyOwner(user_) : place.user();
    const auto engine = openEngine();
    flags_.check(*engine);
    std::vector<UnreadJob> unread;
    const JobList jobs = loadJobs(&unread);
    for (const UnreadJob& other : unread) {  // it may be the one that is meant
        const std::string warning = "Warning: " + unreadText(other);
        flags_.json ? terminal.error(warning) : terminal.warn(warning);
    }
    const std::unique_ptr<BackupJobDefinition> job = define(jobs, user, place);
    refuseToBackUpItself(*job);
    const std::string& id = job->id();
    const std::string name = toUtf8(job->name());
    const JobDefinition* known = nullptr;
    for (const auto& other : jobs) {
        known = other->id() == id ? other.get() : known;
    }
    const bool changed = known == nullptr || known->text() != job->text();
    if (hasUnfinishedRun(id)) {
        if (changed) {
            throw AgentError("The job '" + name +
                             "' has an unfinished run with other settings: finish it first with "
                             "'agent resume \"" +
                             name + "\"', or drop it with 'agent stop \"" + name + "\"'");
        }
        if (!schedule_.given() && !flags_.json) {
            terminal.out("Going on with the unfinished run of job '" + name + "'.");
        }
    }
    if (known != nullptr && changed) {
        sayChanges(terminal, dynamic_cast<const BackupJobDefinition&>(*known), *job);
    }
    if (schedule_.given()) {
        if (changed) {
            engine->submit(*job);
        }
        return saySchedule(terminal, *job, engine->resident());
    }
    return runJob(
        *engine, terminal, *job, [&] { startRun(*engine, *job, changed); }, flags_);
}

// Standard output is one JSON object a line where that was asked for.
void BackupCommand::sayChanges(Terminal& terminal, const BackupJobDefinition& known,
                               const BackupJobDefinition& changed) const {
    for (const std::string& line : changesOf(known, changed)) {
        flags_.json ? terminal.error(line) : terminal.out(line);
    }
}

int BackupCommand::saySchedule(Terminal& terminal, const BackupJobDefinition& job,
                               bool resident) const {
    const std::string name = toUtf8(job.name());
    const uint64_t next = viewOf(job).nextRun;
    if (flags_.json) {
        const json_spirit::Ordered_object json{{"id", job.id()},
                                               {"name", name},
                                               {"schedule", scheduleJson(job.schedule())},
                                               {"nextRun", wire_time(next)},
                                               {"resident", resident}};
        terminal.out(json_spirit::write(json_spirit::Ordered_value(json)));
        return exitDone;
    }
    if (next == 0) {
        terminal.out("The job '" + name + "' runs by hand: 'agent start \"" + name +
                     "\"' runs it.");
        return exitDone;
    }
    // What has passed is on record until it is made up for.
    terminal.out("The job '" + name + "' runs " + scheduleText(job.schedule()) +
                 (next > utcTimeNow()
                      ? ", next on " + localTimeText(next) + "."
                      : "; the run that it has missed begins when the resident agent starts."));
    if (!resident) {
        terminal.warn(std::string("Warning: Only the resident agent starts it, and none runs: ") +
                      residentHint + ".");
    }
    return exitDone;
}

std::unique_ptr<BackupJobDefinition> BackupCommand::define(const JobList& jobs,
                                                           const std::string& user,
                                                           const BackupPlace& place) const {
    std::vector<std::wstring> sources;
    for (const std::string& path : paths_) {
        sources.push_back(onDiskPath(toWide(path), true));
    }
    sources = withoutNested(sources, isWalkedWith);
    const std::wstring name = toWide(name_);
    const BackupJobDefinition* const known = name.empty()
                                                 ? findBackup(jobs, user, sources, place.location())
                                                 : findBackup(jobs, user, name);
    if (known == nullptr && !name.empty()) {
        requireNewName(jobs, name);
    }
    auto job =
        known != nullptr
            ? copyOf(*known)
            : std::make_unique<BackupJobDefinition>(
                  newJobId(), name.empty() ? freeName(jobs, nameOfSources(sources)) : name, user);
    // The same paths in another order or case are no other definition.
    if (known == nullptr || !samePaths(known->source(), sources)) {
        job->setSource(sources);
    }
    place.assignTo(*job);
    setRules(*job);
    if (schedule_.given()) {
        job->setSchedule(schedule_.read(job->schedule(), localTimeNow()));
    }
    return job;
}

void BackupCommand::setRules(BackupJobDefinition& job) const {
    if (!onlyExtensions_.empty()) {
        job.setFilter(BackupJobDefinition::extensionsOnly, readExtensions(onlyExtensions_));
    } else if (!skippedExtensions_.empty()) {
        job.setFilter(BackupJobDefinition::extensionsLeftOut, readExtensions(skippedExtensions_));
    } else {
        job.setFilter(0, {});
    }
    job.setCompress(!plain_);
}

// agent exclude add|remove|list: the paths that backups leave out, of all jobs or of one.
class ExcludeCommand : public Command {
public:
    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;

private:
    int change(Terminal& terminal) const;
    int list(Terminal& terminal) const;
    std::string listName() const;

    CLI::App* add_ = nullptr;   // owned by the parser
    CLI::App* list_ = nullptr;  // owned by the parser
    std::string path_;
    std::string job_;
    bool json_ = false;
};

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

}  // namespace

std::unique_ptr<Command> backupCommand() {
    return std::make_unique<BackupCommand>();
}

std::unique_ptr<Command> excludeCommand() {
    return std::make_unique<ExcludeCommand>();
}

}  // namespace dorvo::agent
