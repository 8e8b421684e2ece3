#include "cli/backupcommand.h"

#include <algorithm>
#include <regex>

#include "base/local_time.h"
#include "base/text.h"
#include "control/openengine.h"
#include "data/backupplace.h"
#include "data/excludedpaths.h"
#include "data/jobname.h"
#include "data/jobview.h"
#include "data/scheduletext.h"
#include "data/sourcepath.h"
#include "data/users.h"
#include "run/jobrun.h"
#include "source/exclusionlist.h"
#include "source/sourcelinks.h"
#include "storage/wire_time.h"
#include "text/agenterror.h"
#include "text/residenthint.h"
#include "text/timetext.h"

namespace dorvo::agent {
namespace {

constexpr int32_t onlyListed = 1;
constexpr int32_t allButListed = 2;

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

}  // namespace

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
        job.setFilter(onlyListed, readExtensions(onlyExtensions_));
    } else if (!skippedExtensions_.empty()) {
        job.setFilter(allButListed, readExtensions(skippedExtensions_));
    } else {
        job.setFilter(0, {});
    }
    job.setCompress(!plain_);
}

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

}  // namespace dorvo::agent
