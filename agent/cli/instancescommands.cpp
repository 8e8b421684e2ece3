// The commands that list what the server or a folder holds: the runs of backup jobs, and the items
// of one.
#include "cli/commands.h"

#include <windows.h>

#include <algorithm>
#include <optional>
#include <string>

#include "base/text.h"
#include "cli/instancequery.h"
#include "data/backupplace.h"
#include "data/itemview.h"
#include "data/jobstore.h"
#include "text/agenterror.h"
#include "text/format.h"

namespace dorvo::agent {
namespace {

std::string jobName(const JobList& jobs, const std::string& id) {
    for (const auto& job : jobs) {
        if (equalsIgnoreCase(job->id(), id)) {
            return toUtf8(job->name());
        }
    }
    return id;
}

json_spirit::Ordered_object json(const StoredInstance& instance) {
    json_spirit::Ordered_object members = {{"machine", instance.machine},
                                           {"jobdefinitionid", instance.jobDefinitionId},
                                           {"jobinstanceid", instance.jobInstanceId},
                                           {"starttime", instance.startTime},
                                           {"endtime", instance.endTime},
                                           {"state", instance.state},
                                           {"totalfiles", instance.totalFiles},
                                           {"totaldirectories", instance.totalDirectories},
                                           {"totalsize", instance.totalSize},
                                           {"errors", instance.errors}};
    if (!instance.user.empty()) {
        members.push_back({"user", instance.user});
    }
    return members;
}

// agent instances: the runs of backup jobs that the storage server or a folder holds.
class InstancesCommand : public Command {
public:
    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;

private:
    std::string user_;
    std::string machine_;
    std::string job_;
    std::string local_;
    bool json_ = false;
};

CLI::App* InstancesCommand::describe(CLI::App& parent) {
    CLI::App* const instances = parent.add_subcommand(
        "instances", "List the runs of backup jobs that the server or a folder holds");
    instances->add_option("--job", job_, "Only runs of this job: its name or id");
    instances->add_option("--machine", machine_, "Only runs of this machine");
    instances->add_option("--local", local_, "The folder of the backups, in place of the server")
        ->type_name("DIR");
    instances->add_option("--user", user_, "The account, when several have logged in");
    instances->add_flag("--json", json_, "One JSON document");
    instances->footer("Times are UTC.\nExample:\n  agent instances --job docs");
    return instances;
}

int InstancesCommand::run(Terminal& terminal) {
    const BackupPlace place(local_, user_);
    const JobList jobs = loadJobs();
    const std::vector<StoredInstance> instances = place.runs(machine_, backupJobId(jobs, job_));
    json_spirit::Ordered_array documents;
    std::vector<std::vector<std::string>> rows;
    for (const StoredInstance& instance : instances) {
        documents.emplace_back(json(instance));
        rows.push_back({instance.startTime, instance.state, instance.machine,
                        jobName(jobs, instance.jobDefinitionId),
                        std::to_string(instance.totalFiles), bytesText(instance.totalSize),
                        std::to_string(instance.errors), instance.jobInstanceId});
    }
    if (json_) {
        terminal.out(json_spirit::write_formatted(json_spirit::Ordered_value(documents)));
    } else if (rows.empty()) {
        terminal.out("There are no runs that match.");
    } else {
        terminal.out(tableText(
            {"STARTED", "STATE", "MACHINE", "JOB", "FILES", "SIZE", "FAILED", "INSTANCE"}, rows));
    }
    return exitDone;
}

// Writes items page by page, as one document or as lines. A page is all that is in memory.
class ItemWriter {
public:
    ItemWriter(Terminal& terminal, bool json) : terminal_(terminal), json_(json) {
        terminal_.out(json_ ? "[" : itemHeadings());
    }

    void write(const RestoreCatalog::Page& page) {
        std::string text;
        for (const RestoreCatalog::Item& item : page.items) {
            text += json_ ? jsonLine(item) : itemText(item) + "\n";
        }
        if (!text.empty()) {
            terminal_.out(text);
        }
    }

    void end() {
        if (json_) {
            terminal_.out(held_.empty() ? "]" : held_ + "\n]");
        }
    }

private:
    // Each item waits for the next one, since only then it is known whether a comma follows.
    std::string jsonLine(const RestoreCatalog::Item& item) {
        std::string before = held_.empty() ? std::string() : held_ + ",\n";
        held_ = "    " + json_spirit::write(json_spirit::Ordered_value(itemJson(item)));
        return before;
    }

    Terminal& terminal_;
    bool json_;
    std::string held_;
};

// agent files INSTANCE [PATH]: what a backup holds.
class FilesCommand : public Command {
public:
    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;

private:
    InstanceQuery query_;
    std::string path_;
    bool json_ = false;
};

CLI::App* FilesCommand::describe(CLI::App& parent) {
    CLI::App* const files = parent.add_subcommand("files", "List what a backup holds");
    query_.describe(*files);
    files->add_option("PATH", path_, "Only this file, or this folder and what lies below it");
    files->add_flag("--json", json_, "One JSON document");
    files->footer("Times are UTC.\nExample:\n  agent files latest C:\\Users\\alice --job docs");
    return files;
}

int FilesCommand::run(Terminal& terminal) {
    const BackupPlace place(query_.local, query_.user);
    const StoredInstance run = query_.choose(place);
    const auto catalog = place.catalog(run);
    const std::wstring path =
        path_.empty() ? std::wstring() : place.find(*catalog, run, path_).path;
    RestoreCatalog::Page page;
    std::string after;
    uint64_t missing = 0;
    std::optional<ItemWriter> writer;
    do {
        if (!catalog->list(path, after, page)) {
            throw AgentError(place.failure(GetLastError()));
        }
        if (!writer) {
            writer.emplace(terminal, json_);
        }
        writer->write(page);
        after = page.next;
        missing = std::max(missing, page.missing);
    } while (!after.empty());
    writer->end();
    if (missing == 0) {
        return exitDone;
    }
    terminal.error("agent: The run " + run.jobInstanceId +
                   " is not whole: " + BackupPlace::lostWords(missing) + ".");
    return exitSomeFailed;
}

}  // namespace

std::unique_ptr<Command> instancesCommand() {
    return std::make_unique<InstancesCommand>();
}

std::unique_ptr<Command> filesCommand() {
    return std::make_unique<FilesCommand>();
}

}  // namespace dorvo::agent
